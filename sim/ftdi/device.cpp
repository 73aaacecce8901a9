#include "sim/ftdi/device.h"

#include <memory>

#include "sim/controller.h"
#include "sim/ftdi/identity.h"

namespace qvsim {

MakeResponder DeviceOf(const ChipDescription& chip) {
  auto device = chip.link == ChipDescription::Link::Echo
                    ? MakeResponder(MakeEcho)
                    : ServeController({.serialNumber = chip.serialNumber});
  if (!chip.protocolId) return device;
  return [=, id = *chip.protocolId] { return std::make_unique<Identity>(id, device()); };
}

}  // namespace qvsim
