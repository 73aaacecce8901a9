#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <utility>

#include "check.h"
#include "links.h"
#include "quorvio/quorvio.h"
#include "support/wait.h"

namespace qvfuzz {

/// One open handle: checks when its callbacks run and what they get. Has to live until its receive thread has
/// ended. Whether bytes arrive whole and in order is checked by the soak and by tests/system.
class OpenChannel {
 public:
  /// @param link  null: nothing is known of the device
  OpenChannel(Link* link, bool hasReceiveCallback)
      : link_(link), echoes_(link != nullptr && link->echoes && hasReceiveCallback) {}

  [[nodiscard]] Link* link() const { return link_; }

  /// Whether a send must succeed.
  [[nodiscard]] bool isIntact() const { return link_ != nullptr && !isBroken_; }

  /// Whether a byte that is sent comes back to this handle. Handles of one serial port read each other's.
  [[nodiscard]] bool echoes() const { return echoes_ && !isBroken_ && link_->kind != Link::Kind::Serial; }

  void peerIsGone() { isBroken_ = true; }

  /// Runs the action within the next receive callback and returns when it is done.
  /// @param trigger  sends something that is echoed
  void runInCallback(const std::function<void()>& action, const std::function<void()>& trigger) {
    std::promise<void> done;
    {
      const std::lock_guard lock(mutex_);
      action_ = [&] {
        action();
        done.set_value();
      };
    }
    trigger();
    Check(done.get_future().wait_for(qvtest::kGenerous) == std::future_status::ready,
          "a call from within a callback returns");
  }

  /// From now on no callback may run.
  void isClosed() { isClosed_ = true; }

  static void onReceive(void* self, const uint8_t* /*data*/, std::size_t length) {
    auto& channel = *static_cast<OpenChannel*>(self);
    Check(length == static_cast<std::size_t>(-1) || length <= QV_IO_RECEIVE_CHUNK,
          "a callback gets at most a chunk");
    channel.enterCallback();
    if (const auto action = channel.takeAction()) action();
    channel.isInCallback_ = false;
  }

  static void onError(void* self, uint32_t resultCode) {
    auto& channel = *static_cast<OpenChannel*>(self);
    Check(resultCode == QV_IO_ERROR_CONNECTION_LOST || resultCode == QV_IO_ERROR_RECEIVE_FAILED,
          "a receiving channel reports two faults");
    channel.enterCallback();
    channel.isInCallback_ = false;
  }

 private:
  void enterCallback() {
    Check(!isClosed_, "no callback after a close that waited");
    Check(!isInCallback_.exchange(true), "one callback at a time");
  }

  std::function<void()> takeAction() {
    const std::lock_guard lock(mutex_);
    return std::exchange(action_, {});
  }

  Link* const link_;
  const bool echoes_;
  std::mutex mutex_;  ///< guards action_
  std::function<void()> action_;
  std::atomic<bool> isBroken_ = false;
  std::atomic<bool> isClosed_ = false;
  std::atomic<bool> isInCallback_ = false;
};

}  // namespace qvfuzz
