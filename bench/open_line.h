#pragma once

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "channel.h"
#include "inbox.h"
#include "line.h"

namespace qvbench {

/// A channel whose receive thread has handed out one byte, and the far end of its line, which does nothing by
/// itself.
class OpenLine {
 public:
  explicit OpenLine(Line line)
      : listener_(line),
        channel_(listener_.address(), this, onReceive, onError),
        farEnd_(listener_.accept()) {
    const std::array<uint8_t, 1> byte{};
    Require(::write(farEnd_->get(), byte.data(), byte.size()) == 1, "write");
    bytes_.await(1);
  }

  Channel& channel() { return channel_; }

  [[nodiscard]] int waitingAtFarEnd() const {
    int waiting = 0;
    Require(::ioctl(farEnd_->get(), FIONREAD, &waiting) == 0, "FIONREAD");
    return waiting;
  }

  /// Closes the far end and waits until the channel has told it.
  void loseFarEnd() {
    farEnd_.reset();
    notices_.await(1);
  }
  /// After a close without wait of a TCP line: returns when the receive thread has ended the connection.
  void awaitEnd() const {
    uint8_t byte = 0;
    Require(::read(farEnd_->get(), &byte, 1) == 0, "end of the connection");
  }
  [[nodiscard]] std::size_t notices() const { return notices_.count(); }

 private:
  static void onReceive(void* self, const uint8_t* /*data*/, std::size_t length) {
    static_cast<OpenLine*>(self)->bytes_.add(length);
  }
  static void onError(void* self, uint32_t /*code*/) { static_cast<OpenLine*>(self)->notices_.add(1); }

  Listener listener_;
  Inbox bytes_;
  Inbox notices_;
  Channel channel_;
  std::optional<Descriptor> farEnd_;
};

}  // namespace qvbench
