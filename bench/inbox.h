#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace qvbench {

/// Counts the bytes (or other things) that a receive thread brings and wakes the one caller that waits for
/// them. The same for every contestant that has such a thread, and cheap for chunks that complete nothing.
class Inbox {
 public:
  /// Receive thread.
  void add(std::size_t bytes) {
    const auto before = received_.fetch_add(bytes);
    const auto awaited = awaited_.load();
    if (before >= awaited || before + bytes < awaited) return;
    const std::lock_guard lock(mutex_);  // the caller is before its look at the count, or waits
    complete_.notify_one();
  }

  /// Returns when this many bytes more have come than were awaited before.
  void await(std::size_t bytes) {
    const auto awaited = awaited_.fetch_add(bytes) + bytes;
    std::unique_lock lock(mutex_);
    complete_.wait(lock, [&] { return received_.load() >= awaited; });
  }

  [[nodiscard]] std::size_t count() const { return received_; }

 private:
  std::atomic<std::size_t> received_ = 0;
  std::atomic<std::size_t> awaited_ = 0;
  std::mutex mutex_;  ///< guards nothing but the moment between the waiter's look and its sleep
  std::condition_variable complete_;
};

}  // namespace qvbench
