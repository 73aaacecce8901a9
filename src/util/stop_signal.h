#pragma once

#include <atomic>
#include <chrono>

#include "util/unique_fd.h"

namespace cppu {

/// A stop flag that wakes a poll. Set once, never cleared. Any thread.
class StopSignal {
 public:
  /// Throws std::system_error when there is no descriptor left.
  StopSignal();

  void request() noexcept;
  [[nodiscard]] bool requested() const noexcept { return requested_.load(std::memory_order_acquire); }

  /// When it was first requested; only once requested() is true.
  [[nodiscard]] std::chrono::steady_clock::time_point requestTime() const noexcept {
    return requestTime_.load();
  }

  /// Readable from the request on.
  [[nodiscard]] int fd() const noexcept { return event_.get(); }

  /// Rests for the given time; a stop request ends the rest at once.
  void wait(std::chrono::milliseconds time) const;

 private:
  std::atomic<std::chrono::steady_clock::time_point> requestTime_{};
  std::atomic<bool> requested_ = false;
  UniqueFd event_;
};

}  // namespace cppu
