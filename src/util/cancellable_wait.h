#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace cppu {

/// A wait that another thread may cut short. Any thread.
class CancellableWait {
 public:
  /// Waits until the deadline; false when it was cancelled before.
  [[nodiscard]] bool waitUntil(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    return !cancelled_.wait_until(lock, deadline, [this] { return isCancelled_; });
  }

  /// Ends every wait, those that begin later too.
  void cancel() noexcept {
    {
      const std::lock_guard lock(mutex_);
      isCancelled_ = true;
    }
    cancelled_.notify_all();
  }

 private:
  std::mutex mutex_;  ///< guards isCancelled_; a leaf
  std::condition_variable cancelled_;
  bool isCancelled_ = false;
};

}  // namespace cppu
