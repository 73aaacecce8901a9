#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>

namespace qvsoak {

/// How long channels rest between two sends, so that the whole process needs about one processor. Any thread.
class Pace {
 public:
  [[nodiscard]] std::chrono::microseconds rest() const { return rest_.load(); }

  /// To be called now and then with the processors that were used since.
  void adapt(double processors) {
    constexpr std::chrono::microseconds kShortest(500);
    constexpr std::chrono::microseconds kLongest(500'000);
    const auto wanted = std::chrono::duration<double, std::micro>(rest_.load()) * (processors / kProcessors);
    rest_ = std::clamp(std::chrono::duration_cast<std::chrono::microseconds>(wanted), kShortest, kLongest);
  }

 private:
  static constexpr double kProcessors = 0.9;

  std::atomic<std::chrono::microseconds> rest_ = std::chrono::microseconds(10'000);
};

}  // namespace qvsoak
