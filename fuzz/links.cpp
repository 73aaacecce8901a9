#include "links.h"

#include <dlfcn.h>

#include <chrono>
#include <cstdio>

#include "check.h"
#include "sim/controller.h"
#include "sim/ftdi/control.h"

namespace qvfuzz {
namespace {

constexpr const char* kChips =
    "desc=\"Quorvi DRV-I\" serial=SLOW chip-id=1001 ua=5156494f01 link=echo\n"
    "desc=\"Quorvi DRV2\" serial=FAST chip-id=4000000002 ua=5156494f0a protocol-id=5\n"
    "desc=\"Quorvi Sensor\" serial=SENSOR chip-id=none pid=0x6002 link=echo\n"
    "desc=\"Quorvi DRV2 A\" serial=DUALA chip-id=1004 type=6 flags=2 pid=0x6010 link=echo\n"
    "desc=\"Quorvi DRV2 B\" serial=DUALB chip-id=1005 type=6 flags=2 pid=0x6010 link=echo\n"
    "desc=\"Quorvi AXU-3D\" serial=HELD chip-id=1006 held\n";

/// False without the stand-in driver.
bool SetUsbChips() {
  void* const driver = ::dlopen("libftd2xx.so", RTLD_NOW);
  void* const set = driver != nullptr ? ::dlsym(driver, "QVSIM_SetChips") : nullptr;
  if (set == nullptr) {
    std::fputs("fuzz: without USB chips: run with LD_LIBRARY_PATH=BUILD-FOLDER/lib/sim\n", stderr);
    return false;
  }
  Check(reinterpret_cast<decltype(QVSIM_SetChips)*>(set)(kChips) == 1, "the simulated chips are understood");
  return true;
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
