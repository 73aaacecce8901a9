#include "links.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "check.h"
#include "sim/controller.h"
#include "sim/ftdi/stand_in.h"
#include "usb/chip_texts.h"

namespace qvfuzz {
namespace {

/// False without the stand-in driver.
bool SetUsbChips() try {
  const auto set = qvsim::StandIn().find<decltype(QVSIM_SetChips)>("QVSIM_SetChips");
  Check(set(qvtest::kChips) == 1, "the simulated chips are understood");
  return true;
} catch (const std::runtime_error& failure) {
  std::fprintf(stderr, "fuzz: without USB chips: %s\n", failure.what());
  return false;
}

}  // namespace

Links::Links(bool withDiscovery) : tcp_(loop_, "127.0.0.1", 0, qvsim::MakeEcho), hasUsb_(SetUsbChips()) {
  using enum Link::Kind;
  const auto port = std::to_string(tcp_.port());
  links_ = {{Serial, "serial:" + serial_[0].path(), "baudrate 115200", true},
            {Serial, "serial:" + serial_[1].path(), "baudrate 50\nxonxoff", true},
            {Tcp, "network:127.0.0.1:" + port, "", true},
            {Tcp, "network:localhost", "strict\nconnect-timeout 9000\nport " + port, true},
            {Usb, "usb:sn:SLOW", "health-check 50", true},
            {Usb, "usb:sn:FAST", "", false},
            {Usb, "usb:sn:SENSOR", "baudrate 9600\nftdi-flow-control rtscts", true},
            {Usb, "usb:sn:DUAL", "strict\nftdi-latency 1", true}};
  if (!withDiscovery) return;
  controllers_.emplace(loop_, qvsim::GroupSettings{.spread = std::chrono::milliseconds(1)});
  for (const auto* serial : {"5000", "a=b|%"}) controllers_->add({serial, 7, 1, "Axis"}, qvsim::MakeEcho);
}

}  // namespace qvfuzz
