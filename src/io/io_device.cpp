#include "io/io_device.h"

#include <utility>

#include "util/failure.h"
#include "util/text_out.h"

namespace qvio {
namespace {

void Discard(void* /*userData*/, const uint8_t* /*data*/, std::size_t /*length*/) {}

}  // namespace

IoDevice::IoDevice(ChannelArguments arguments) : arguments_(std::move(arguments)) {
  if (arguments_.onReceive == nullptr) arguments_.onReceive = Discard;
  // The result is of no interest: whoever opens channels has judged the locator already.
  QV_IO_GetLocatorInterfaceType(&interfaceType_, arguments_.locator.c_str());
}

void IoDevice::handOut(std::string_view text, char* buffer, std::size_t* size) {
  Require(cppu::CopyProperty(text, buffer, *size), QV_IO_ERROR_BUFFER_TOO_SMALL,
          "the property needs a buffer of % bytes", {text.size() + 1});
}

}  // namespace qvio
