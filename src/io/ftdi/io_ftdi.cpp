#include "io/ftdi/io_ftdi.h"

namespace qvio {

uint32_t IoFtdi::open(std::shared_ptr<IoDevice> /*self*/) { return QV_IO_ERROR_DRIVER_UNAVAILABLE; }

// Never reached: a channel that did not open is dropped.
void IoFtdi::close(bool /*wait*/) {}
uint32_t IoFtdi::send(const void* /*data*/, std::size_t /*length*/) { return QV_IO_ERROR_DRIVER_UNAVAILABLE; }
uint32_t IoFtdi::getProperty(const char* /*key*/, char* /*buffer*/, std::size_t* /*size*/) {
  return QV_IO_ERROR_DRIVER_UNAVAILABLE;
}

}  // namespace qvio
