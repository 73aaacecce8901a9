#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "sim/controller_group.h"
#include "sim/event_loop.h"
#include "sim/network_device.h"
#include "sim/serial_device.h"

namespace qvfuzz {

/// A link to a simulated device, and what the calls so far make of it.
struct Link {
  enum class Kind { Serial, Tcp, Usb };

  Kind kind;
  std::string locator;
  std::string options;
  bool echoes;
  int users = 0;           ///< open handles
  bool isReleased = true;  ///< no receive thread that nobody waited for may still have it
};

/// The simulated devices of the process.
class Links {
 public:
  /// @param withDiscovery  controllers answer on loopback, which has to be private
  explicit Links(bool withDiscovery);

  [[nodiscard]] std::vector<Link>& all() { return links_; }
  [[nodiscard]] bool hasUsb() const { return hasUsb_; }
  [[nodiscard]] bool hasDiscovery() const { return controllers_.has_value(); }

  void hangUpTcp() { tcp_.closeAll(); }
  void resetTcp() { tcp_.resetAll(); }

  /// To be called when nothing is open any more.
  void allAreReleased() {
    for (auto& link : links_) link.isReleased = true;
  }

 private:
  qvsim::EventLoop loop_;
  qvsim::NetworkDevice tcp_;
  std::array<qvsim::SerialDevice, 2> serial_{{{loop_, qvsim::MakeEcho}, {loop_, qvsim::MakeEcho}}};
  std::optional<qvsim::ControllerGroup> controllers_;
  bool hasUsb_;
  std::vector<Link> links_;
};

}  // namespace qvfuzz
