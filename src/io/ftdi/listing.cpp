#include "io/ftdi/listing.h"

#include "options/result.h"

namespace qvio {

std::string ListUsbLocators(std::string_view /*options*/) { throw Failure(QV_IO_ERROR_DRIVER_UNAVAILABLE); }

void AppendUsbDevices(const DeviceListOptions& /*options*/, RecordList& /*records*/) {
  throw Failure(QV_IO_ERROR_DRIVER_UNAVAILABLE);
}

}  // namespace qvio
