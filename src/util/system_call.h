#pragma once

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <span>

namespace cppu {

/// A moment of the monotonic clock; none means without limit.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// Repeats a system call while signals interrupt it; returns its result, errno as it left it.
template <class Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/// `poll` until an entry is ready or the deadline has passed, whatever signals arrive.
/// Returns the number of ready entries, 0 at the deadline, below 0 on failure (errno set).
int PollUntil(std::span<pollfd> entries, Deadline deadline);

}  // namespace cppu
