#pragma once

#include <string_view>

#include "io/ftdi/usb.h"
#include "options/option_sets.h"

namespace qvio {

/// The chip that a locator names among those that are not open and, if products are given, whose trimmed
/// description is one of them. Throws Failure: QV_IO_ERROR_INVALID_LOCATOR, QV_IO_ERROR_DEVICE_NOT_FOUND, or
/// QV_IO_ERROR_DRIVER_FAILURE when the driver cannot list.
UsbDevice FindChip(std::string_view locator, const UsbOptions& options, UsbAccess& usb);

/// Throws Failure with QV_IO_ERROR_INVALID_LOCATOR unless the locator has the three fields of a USB one.
void RequireUsbLocator(std::string_view locator);

}  // namespace qvio
