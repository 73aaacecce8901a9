#pragma once

#include <mutex>
#include <utility>

namespace cppu {

/// A value that can be reached only under its lock. Actions must not block.
template <class T>
class Guarded {
 public:
  Guarded() = default;
  explicit Guarded(T value) : value_(std::move(value)) {}

  template <class Action>
  decltype(auto) with(Action action) {
    const std::lock_guard lock(mutex_);
    return action(value_);
  }
  template <class Action>
  decltype(auto) with(Action action) const {
    const std::lock_guard lock(mutex_);
    return action(value_);
  }

 private:
  mutable std::mutex mutex_;  ///< guards value_
  T value_{};
};

}  // namespace cppu
