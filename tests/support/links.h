#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/event_loop.h"
#include "sim/network_device.h"
#include "sim/serial_device.h"

namespace qvtest {

enum class LinkKind { Serial, Tcp };

/// An echoing simulated device on a link of either kind, with the faults of that link.
class EchoLink {
 public:
  explicit EchoLink(LinkKind kind) {
    if (kind == LinkKind::Serial) {
      serial_.emplace(loop_, qvsim::MakeEcho);
    } else {
      tcp_.emplace(loop_, "127.0.0.1", uint16_t{0}, qvsim::MakeEcho);
    }
  }

  [[nodiscard]] std::string locator() const {
    return serial_ ? "serial:" + serial_->path() : "network:127.0.0.1:" + std::to_string(tcp_->port());
  }
  [[nodiscard]] std::string options() const { return serial_ ? "baudrate 115200" : ""; }

  void setReading(qvsim::Reading reading) {
    serial_ ? serial_->setReading(reading) : tcp_->setReading(reading);
  }
  void sendForever() { serial_ ? serial_->sendForever() : tcp_->sendForever(); }
  void hangUp() { serial_ ? serial_->hangUp() : tcp_->closeAll(); }
  [[nodiscard]] bool hasUnread() { return serial_ ? serial_->hasUnread() : tcp_->hasUnread(); }

  /// Only for LinkKind::Tcp.
  [[nodiscard]] qvsim::NetworkDevice& tcp() { return tcp_.value(); }

 private:
  qvsim::EventLoop loop_;
  std::optional<qvsim::SerialDevice> serial_;
  std::optional<qvsim::NetworkDevice> tcp_;
};

}  // namespace qvtest
