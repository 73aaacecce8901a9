#pragma once

#include <string>
#include <string_view>

#include "options/option_sets.h"
#include "options/record_list.h"

namespace qvio {

/// The locators of the attached chips, one a line. Throws Failure with QV_IO_ERROR_DRIVER_UNAVAILABLE without
/// the driver's libraries, which are not bound yet.
std::string ListUsbLocators(std::string_view options);

/// Appends a record for each chip that passes the filters. Throws as ListUsbLocators does.
void AppendUsbDevices(const DeviceListOptions& options, RecordList& records);

}  // namespace qvio
