#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <thread>

namespace cppu {

/// A thread of the library: it bears a name and blocks all signals, so that the application's handlers run
/// on the application's threads. Movable; must be joined before it is destroyed.
class Thread {
 public:
  Thread() = default;

  /// Starts the body. Throws std::system_error when no thread can be had; then the body never runs.
  /// @param name  at most 15 characters
  Thread(const char* name, std::function<void()> body);

  [[nodiscard]] bool joinable() const noexcept { return thread_.joinable(); }
  [[nodiscard]] bool isCurrent() const noexcept { return thread_.get_id() == std::this_thread::get_id(); }

  /// Waits until the body has returned, at most until the deadline. After true, join() returns at once.
  [[nodiscard]] bool endsBefore(std::chrono::steady_clock::time_point deadline) const {
    return ended_.wait_until(deadline) == std::future_status::ready;
  }

  void join() { thread_.join(); }
  void detach() { thread_.detach(); }

 private:
  std::future<void> ended_;
  std::thread thread_;
};

}  // namespace cppu
