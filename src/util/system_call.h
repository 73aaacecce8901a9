#pragma once

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>

namespace cppu {

/// A moment of the monotonic clock; none means without limit.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

inline bool HasPassed(const Deadline& deadline) {
  return deadline && std::chrono::steady_clock::now() >= *deadline;
}

/// The one that passes first.
inline Deadline Sooner(const Deadline& one, const Deadline& other) {
  if (!one || !other) return one ? one : other;
  return std::min(*one, *other);
}

/// Repeats a system call while signals interrupt it; returns its result, errno as it left it.
template <class Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/// `poll` until an entry is ready or the deadline has passed, whatever signals arrive.
/// Returns the number of ready entries, 0 at the deadline, below 0 on failure (errno set).
inline int PollUntil(std::span<pollfd> entries, Deadline deadline) {
  const auto milliseconds = [&] {
    if (!deadline) return -1;
    // Rounded up: a wait that ends early would spin through the last millisecond.
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, std::numeric_limits<int>::max()));
  };
  return Uninterrupted([&] { return ::poll(entries.data(), entries.size(), milliseconds()); });
}

}  // namespace cppu
