#pragma once

#include "io/ftdi/usb.h"
#include "options/locator.h"
#include "options/option_sets.h"

namespace qvio {

/// The chip that a locator names among those that are not open and, if products are given, whose trimmed
/// description is one of them. Throws Failure: QV_IO_ERROR_INVALID_LOCATOR, QV_IO_ERROR_DEVICE_NOT_FOUND, or
/// QV_IO_ERROR_DRIVER_FAILURE when the driver cannot list.
UsbDevice FindChip(const Locator& locator, const UsbOptions& options, UsbAccess& usb);

/// Throws Failure with QV_IO_ERROR_INVALID_LOCATOR unless the locator has the two fields of a USB one.
void RequireUsbLocator(const Locator& locator);

}  // namespace qvio
