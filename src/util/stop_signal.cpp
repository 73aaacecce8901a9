#include "util/stop_signal.h"

#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "util/system_call.h"

namespace cppu {

StopSignal::StopSignal() : event_(AboveStandardStreams(UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))) {
  if (!event_) throw std::system_error(errno, std::generic_category(), "cannot create an event");
}

void StopSignal::request() noexcept {
  // The first request counts: the limits of a close run from there.
  std::chrono::steady_clock::time_point never{};
  requestTime_.compare_exchange_strong(never, std::chrono::steady_clock::now());
  requested_.store(true, std::memory_order_release);
  ::eventfd_write(event_.get(), 1);  // cannot fail: the counter is far from its limit
}

void StopSignal::wait(std::chrono::milliseconds time) const {
  std::array<pollfd, 1> entry{{{event_.get(), POLLIN, 0}}};
  PollUntil(entry, std::chrono::steady_clock::now() + time);
}

}  // namespace cppu
