#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "util/unique_fd.h"

namespace qvsim {

/// One thread that serves any number of devices and connections. Its thread blocks all signals.
class EventLoop {
 public:
  /// Called on the loop's thread with the epoll events that came.
  using Handler = std::function<void(uint32_t events)>;

  /// Throws std::system_error when the system gives no descriptor or thread.
  EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop();

  /// Runs the action on the loop's thread and returns when it is done. Not from the loop's thread itself.
  void run(const std::function<void()>& action);

  /// Runs the action on the loop's thread some time later. Any thread.
  void post(std::function<void()> action);

  /// The rest is for the loop's thread only. A handler may forget its own descriptor.
  void watch(int fd, uint32_t events, Handler handler);
  void change(int fd, uint32_t events);
  void forget(int fd);

  /// Runs the action when the time has passed. At the loop's end actions that are not due are dropped.
  void after(std::chrono::milliseconds time, std::function<void()> action);

 private:
  using Clock = std::chrono::steady_clock;

  void serve();
  [[nodiscard]] int timeToNextTimer() const;
  void runDueTimers();
  void runActions();

  cppu::UniqueFd epoll_;
  cppu::UniqueFd wakeUp_;
  std::unordered_map<int, Handler> handlers_;
  std::multimap<Clock::time_point, std::function<void()>> timers_;
  std::mutex mutex_;  ///< guards actions_
  std::vector<std::function<void()>> actions_;
  bool ended_ = false;
  std::thread thread_;
};

}  // namespace qvsim
