#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <iterator>
#include <limits>
#include <mutex>
#include <utility>
#include <vector>

#include "util/event_fd.h"
#include "util/system_call.h"

namespace qvio_tool {

/// A bounded queue between threads with a descriptor, so that a poll loop can wait for items beside
/// everything else. Any thread.
template <class Item>
class WakingQueue {
 public:
  /// Throws std::system_error when there is no descriptor left.
  explicit WakingQueue(std::size_t limit) : limit_(limit), ready_(cppu::MakeEvent()) {}

  /// Waits for room. False when the queue is closed.
  bool push(Item item) {
    std::unique_lock lock(mutex_);
    hasRoom_.wait(lock, [this] { return closed_ || items_.size() < limit_; });
    return add(std::move(item));
  }

  /// Does not wait. False when the queue is full or closed.
  bool tryPush(Item item) {
    const std::lock_guard lock(mutex_);
    return items_.size() < limit_ && add(std::move(item));
  }

  /// The oldest items, at most so many. Does not wait.
  std::vector<Item> take(std::size_t atMost = std::numeric_limits<std::size_t>::max()) {
    const std::lock_guard lock(mutex_);
    const auto end = std::next(items_.begin(), static_cast<std::ptrdiff_t>(std::min(atMost, items_.size())));
    std::vector<Item> taken(std::move_iterator(items_.begin()), std::move_iterator(end));
    items_.erase(items_.begin(), end);
    eventfd_t ignored = 0;
    if (items_.empty() && !closed_) ::eventfd_read(ready_.get(), &ignored);
    hasRoom_.notify_all();
    return taken;
  }

  /// Readable while there are items, and once the queue is closed.
  [[nodiscard]] int readyFd() const { return ready_.get(); }

  /// Waits until readyFd() is readable. False at the deadline.
  [[nodiscard]] bool wait(cppu::Deadline deadline) const {
    pollfd entry{readyFd(), POLLIN, 0};
    return cppu::PollUntil({&entry, 1}, deadline) > 0;
  }

  /// Takes no more items and wakes everybody who waits.
  void close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    ::eventfd_write(ready_.get(), 1);
    hasRoom_.notify_all();
  }

  [[nodiscard]] bool isClosed() const {
    const std::lock_guard lock(mutex_);
    return closed_;
  }

 private:
  /// Caller holds mutex_.
  bool add(Item item) {
    if (closed_) return false;
    items_.push_back(std::move(item));
    if (items_.size() == 1) ::eventfd_write(ready_.get(), 1);
    return true;
  }

  const std::size_t limit_;
  const cppu::UniqueFd ready_;
  mutable std::mutex mutex_;  ///< guards what follows, and that ready_ agrees with it
  std::condition_variable hasRoom_;
  std::deque<Item> items_;
  bool closed_ = false;
};

}  // namespace qvio_tool
