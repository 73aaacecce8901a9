#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "util/system_call.h"

namespace qvio_tool {

/// Cuts what a device sends into lines for a terminal. CR, LF or both end a line. A device that sends no line
/// ends is seen all the same: an unfinished line is to be shown a time after its first byte.
class ReceivedText {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kWholeLine{100};
  static constexpr std::size_t kLongestLine = std::size_t{16} << 10U;

  /// The lines that are complete now, or too long, each as Printable gives it and with a line feed.
  [[nodiscard]] std::string add(std::string_view bytes, Clock::time_point now);

  /// When the unfinished line is to be shown; none while there is none.
  [[nodiscard]] cppu::Deadline due() const;

  /// The unfinished line with a line feed. Its own end, if that still comes, does not end another line.
  [[nodiscard]] std::string takeRest();

 private:
  void takeEnd(std::string_view& bytes);
  [[nodiscard]] std::string takeLine(std::string_view& bytes, Clock::time_point now);

  std::string rest_;
  Clock::time_point firstByte_;      ///< of rest_, unless that is empty
  std::string_view alreadyEnded_{};  ///< characters that belong to the end of the line shown last
};

}  // namespace qvio_tool
