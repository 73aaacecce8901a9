#pragma once

#include <chrono>
#include <cstdint>
#include <limits>

namespace qvio {

/// How long a channel that is being closed waits for its device to take bytes: until it has taken none for 1
/// s, and at most until 5 s after the close began. One object serves the send in progress and the
/// release that follows, so that a stalled device costs the second only once.
class ClosingPatience {
 public:
  using Clock = std::chrono::steady_clock;

  /// Notes the progress, and returns whether to wait on. Called only after the stop request was seen; caller
  /// holds the send lock.
  /// @param taken  bytes that the device has taken, counted from any start
  /// @param began  when the close began
  [[nodiscard]] bool check(int64_t taken, Clock::time_point began);

 private:
  Clock::time_point lastProgress_;
  int64_t mostTaken_ = std::numeric_limits<int64_t>::min();  ///< so that the first look starts the second
};

}  // namespace qvio
