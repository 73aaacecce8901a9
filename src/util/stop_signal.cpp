#include "util/stop_signal.h"

#include <array>

#include "util/event_fd.h"
#include "util/system_call.h"

namespace cppu {

StopSignal::StopSignal() : event_(MakeEvent()) {}

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
