#pragma once

#include <string>
#include <string_view>

#include "options/option_sets.h"
#include "options/record_list.h"

namespace qvio {

/// The locators of the attached chips, one a line. Throws OptionsError or Failure: with
/// QV_IO_ERROR_DRIVER_UNAVAILABLE without the driver's libraries, QV_IO_ERROR_QUERY_FAILED when the driver
/// cannot list, QV_IO_ERROR_INVALID_ARGUMENT for options that contradict each other.
std::string ListUsbLocators(std::string_view optionText);

/// Appends a record for each chip that passes the filters. Throws as ListUsbLocators does.
void AppendUsbDevices(const DeviceListOptions& options, RecordList& records);

}  // namespace qvio
