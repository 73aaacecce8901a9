#pragma once

#include <cstdint>
#include <string>

#include "device/polled_channel.h"
#include "terminal/received_text.h"

namespace qvio_tool {

/// One request, or a stream of them, and the answer, which is printed as it comes. Notices are written to
/// standard error.
class Exchange {
 public:
  enum class Answer { Printed, Dropped };

  Exchange(PolledChannel& channel, bool hex, Answer print = Answer::Printed)
      : channel_(channel), hex_(hex), prints_(print == Answer::Printed) {}

  /// Waits until all bytes are sent. False when the deadline has passed or the link is lost. Throws
  /// CommandFailure when sending fails.
  bool send(const std::string& bytes, cppu::Deadline deadline = {});

  /// Waits for an arrival until the deadline, and prints what has come. False when nothing has come by then:
  /// a device that floods always has something, so whoever must end looks at the clock too.
  bool receiveUntil(cppu::Deadline deadline);

  /// Prints the unfinished row of a hexadecimal answer.
  void finish();

  [[nodiscard]] uint64_t received() const { return received_; }
  [[nodiscard]] const std::string& answer() const { return answer_; }  ///< at least its last MiB
  [[nodiscard]] Clock::time_point lastByte() const { return lastByte_; }
  [[nodiscard]] bool isLost() const { return lost_; }  ///< as Arrival::Kind::Lost

 private:
  void handle(const Arrival& arrival);

  PolledChannel& channel_;
  const bool hex_;
  const bool prints_;
  ReceivedText rows_{Form::Hex};
  uint64_t received_ = 0;
  std::string answer_;
  Clock::time_point lastByte_ = Clock::now();
  bool sent_ = false;
  bool lost_ = false;
};

}  // namespace qvio_tool
