#pragma once

#include <chrono>
#include <thread>

namespace qvtest {

/// How long a test waits for what must happen: far above what it takes, even under sanitizers and load.
inline constexpr std::chrono::seconds kGenerous{20};

/// Whether the condition turns true within the generous limit.
template <class Condition>
[[nodiscard]] bool Eventually(Condition condition) {
  const auto limit = std::chrono::steady_clock::now() + kGenerous;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace qvtest
