#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <vector>

#include "util/thread.h"

namespace cppu {

/// Threads that were told to end and that nobody waits for. They are joined when they have ended, and at the
/// latest before the library is unloaded, so that none runs in code that is no longer there. Any thread.
class RetiredThreads {
 public:
  /// Takes the thread over and joins those that have ended since.
  void add(Thread thread) noexcept;

  /// Joins all. A thread that is stuck in a callback of the application is let go after the given time; false
  /// when there was one.
  bool joinAll(std::chrono::milliseconds patience);

 private:
  std::optional<Thread> takeEnded();

  std::mutex mutex_;  ///< guards threads_; nothing is waited for and nothing called while it is held
  std::vector<Thread> threads_;
};

/// The one of the process.
RetiredThreads& Retired();

}  // namespace cppu
