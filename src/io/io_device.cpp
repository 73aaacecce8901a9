#include "io/io_device.h"

#include <utility>

namespace qvio {
namespace {

void Discard(void* /*userData*/, const uint8_t* /*data*/, std::size_t /*length*/) {}

}  // namespace

IoDevice::IoDevice(ChannelArguments arguments) : arguments_(std::move(arguments)) {
  if (arguments_.onReceive == nullptr) arguments_.onReceive = Discard;
  // The result is of no interest: whoever opens channels has judged the locator already.
  QV_IO_GetLocatorInterfaceType(&interfaceType_, arguments_.locator.c_str());
}

}  // namespace qvio
