#pragma once

#include <array>
#include <memory>
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
  bool isQuiet = true;     ///< Serial: no bytes may be on their way, and nobody else reads them
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

  /// As at the start. Nothing is open any more.
  void restore();

 private:
  qvsim::EventLoop loop_;
  qvsim::NetworkDevice tcp_;
  std::array<std::unique_ptr<qvsim::SerialDevice>, 2> serial_;
  std::optional<qvsim::ControllerGroup> controllers_;
  bool hasUsb_;
  std::vector<Link> links_;
};

}  // namespace qvfuzz
