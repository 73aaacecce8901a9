#include "sim/event_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <future>
#include <memory>
#include <utility>

#include "sim/checked.h"
#include "util/signals_blocked.h"

namespace qvsim {

EventLoop::EventLoop()
    : epoll_(Checked(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      wakeUp_(Checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")) {
  watch(wakeUp_.get(), EPOLLIN, [this](uint32_t) { runActions(); });
  const cppu::AllSignalsBlocked inherited;
  thread_ = std::thread([this] { serve(); });
}

EventLoop::~EventLoop() {
  run([this] { ended_ = true; });
  thread_.join();
}

void EventLoop::run(const std::function<void()>& action) {
  // Shared: the loop's thread may still be returning from the task when its result is here.
  const auto task = std::make_shared<std::packaged_task<void()>>(action);
  auto done = task->get_future();
  post([task] { (*task)(); });
  done.get();
}

void EventLoop::post(std::function<void()> action) {
  const std::lock_guard lock(mutex_);
  actions_.push_back(std::move(action));
  ::eventfd_write(wakeUp_.get(), 1);
}

void EventLoop::watch(int fd, uint32_t events, Handler handler) {
  handlers_[fd] = std::move(handler);
  epoll_event event{events, {.fd = fd}};
  Checked(::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event), "epoll_ctl");
}

void EventLoop::change(int fd, uint32_t events) {
  epoll_event event{events, {.fd = fd}};
  Checked(::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event), "epoll_ctl");
}

void EventLoop::forget(int fd) {
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
  handlers_.erase(fd);
}

void EventLoop::after(std::chrono::milliseconds time, std::function<void()> action) {
  timers_.emplace(Clock::now() + time, std::move(action));
}

/// In milliseconds, as epoll wants it; rounded up, so that the loop does not spin through the last one.
int EventLoop::timeToNextTimer() const {
  if (timers_.empty()) return -1;
  const auto time = std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first - Clock::now());
  return static_cast<int>(std::max<int64_t>(time.count(), 0));
}

void EventLoop::runDueTimers() {
  const auto now = Clock::now();
  while (!timers_.empty() && timers_.begin()->first <= now) {
    const auto timer = timers_.extract(timers_.begin());  // out of the table: the action may add others
    timer.mapped()();
  }
}

void EventLoop::serve() {
  std::array<epoll_event, 64> events{};
  while (!ended_) {
    const int ready =
        ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeToNextTimer());
    for (int i = 0; i < ready; ++i) {
      const auto& event = events.at(static_cast<std::size_t>(i));
      const auto found = handlers_.find(event.data.fd);
      if (found == handlers_.end()) continue;  // forgotten by a handler before this one
      const auto handler = found->second;      // a copy: the handler may forget itself
      handler(event.events);
    }
    runDueTimers();
  }
}

void EventLoop::runActions() {
  eventfd_t ignored = 0;
  ::eventfd_read(wakeUp_.get(), &ignored);
  std::vector<std::function<void()>> actions;
  {
    const std::lock_guard lock(mutex_);
    actions.swap(actions_);
  }
  for (const auto& action : actions) action();
}

}  // namespace qvsim
