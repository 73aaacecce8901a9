#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "channel.h"
#include "notices.h"

namespace qvio_tool {

using Clock = std::chrono::steady_clock;

/// What a device answers, printed as it comes. Notices are told on standard error.
class Conversation {
 public:
  enum class Format { Raw, Hex };

  Conversation(Channel& channel, Format format) : channel_(channel), format_(format) {}

  /// Waits for something to come, at most until the deadline, and prints it. False at the deadline.
  bool receiveUntil(Clock::time_point deadline);

  /// Ends the line of a hexadecimal answer and tells how often notices were repeated.
  void finish();

  [[nodiscard]] const std::string& answer() const { return answer_; }
  [[nodiscard]] Clock::time_point lastByte() const { return lastByte_; }
  [[nodiscard]] bool isLost() const { return lost_; }  ///< the peer has closed or reset the link

 private:
  void print(std::string_view bytes);

  Channel& channel_;
  Format format_;
  Notices notices_;
  std::string answer_;
  Clock::time_point lastByte_ = Clock::now();
  bool lost_ = false;
};

}  // namespace qvio_tool
