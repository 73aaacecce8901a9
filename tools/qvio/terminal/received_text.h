#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "util/system_call.h"

namespace qvio_tool {

/// How received bytes are shown.
enum class Form {
  Text,  ///< as lines; CR, LF or both end one
  Hex,   ///< sixteen bytes a line, with their offset and as characters
};

/// Cuts what a device sends into lines for a terminal or a log. A device that sends no line ends is seen all
/// the same: an unfinished line is to be shown a time after its first byte.
class ReceivedText {
 public:
  /// Gives what a line begins with, such as the time; asked when its first byte comes.
  using Prefix = std::function<std::string()>;

  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kWholeLine{100};
  static constexpr std::size_t kLongestLine = std::size_t{16} << 10U;

  explicit ReceivedText(Form form = Form::Text, Prefix prefix = {})
      : form_(form), prefix_(std::move(prefix)) {}

  /// The lines that are complete now, or too long, each harmless for a terminal and with a line feed.
  [[nodiscard]] std::string add(std::string_view bytes, Clock::time_point now);

  /// When the unfinished line is to be shown; none while there is none.
  [[nodiscard]] cppu::Deadline due() const;

  /// The unfinished line with a line feed. Its own end, if that still comes, does not end another line.
  [[nodiscard]] std::string takeRest();

 private:
  void takeEnd(std::string_view& bytes);
  [[nodiscard]] std::string takeLine(std::string_view& bytes);
  [[nodiscard]] std::string takeRow(std::string_view& bytes);
  [[nodiscard]] std::string finishLine();

  const Form form_;
  const Prefix prefix_;
  std::string begin_;  ///< what the unfinished line begins with
  std::string rest_;
  uint64_t offset_ = 0;              ///< of rest_, in the bytes of a device
  Clock::time_point firstByte_;      ///< of rest_, unless that is empty
  std::string_view alreadyEnded_{};  ///< characters that belong to the end of the line shown last
};

}  // namespace qvio_tool
