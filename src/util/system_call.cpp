#include "util/system_call.h"

#include <algorithm>
#include <limits>

namespace cppu {
namespace {

int MillisecondsUntil(Deadline deadline) {
  if (!deadline) return -1;
  // Rounded up: a wait that ends early would spin through the last millisecond.
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
  return static_cast<int>(
      std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, std::numeric_limits<int>::max()));
}

}  // namespace

int PollUntil(std::span<pollfd> entries, Deadline deadline) {
  return Uninterrupted([&] { return ::poll(entries.data(), entries.size(), MillisecondsUntil(deadline)); });
}

}  // namespace cppu
