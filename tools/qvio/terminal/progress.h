#pragma once

#include <chrono>
#include <cstdint>

namespace qvio_tool {

/// A bar on standard error with share, amount, rate and time left, drawn anew a few times a second. Nothing
/// is shown where standard error is not a terminal.
class Progress {
 public:
  explicit Progress(uint64_t total);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Ends the line of the bar.
  ~Progress();

  void set(uint64_t done);

 private:
  using Clock = std::chrono::steady_clock;

  void draw(Clock::time_point now) const;

  const uint64_t total_;
  const bool shows_;
  const Clock::time_point begin_ = Clock::now();
  Clock::time_point next_ = begin_;  ///< when to draw
  uint64_t done_ = 0;
};

}  // namespace qvio_tool
