#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "device/channel_options.h"
#include "device/serial_port.h"
#include "quorvio/quorvio.hpp"
#include "terminal/waking_queue.h"

namespace qvio_tool {

using Clock = std::chrono::steady_clock;

/// What an open channel reports.
struct Arrival {
  enum class Kind {
    Bytes,
    Notice,      ///< receiving failed; reported once until bytes come again
    Lost,        ///< the peer has closed or reset the link, or a serial port is gone; more may follow
    Sent,        ///< all bytes of one send
    SendFailed,  ///< one send; its bytes may have been sent in part
  };
  Kind kind;
  std::string text;  ///< the bytes, or the reason
};

/// An open channel for a poll loop. Receiving and sending happen on threads of their own, so that neither a
/// device that takes no bytes nor one that floods stops the loop: beyond a bound, receiving waits for take().
class PolledChannel {
 public:
  /// Bytes of arrivals that one turn of a poll loop should handle, so that keys and signals have their turn.
  static constexpr std::size_t kBytesInTurn = std::size_t{16} << 10U;

  /// Locks a serial port, opens, and reports surprises on standard error. Throws CommandFailure.
  explicit PolledChannel(const ChannelOptions& options);
  PolledChannel(const PolledChannel&) = delete;
  PolledChannel& operator=(const PolledChannel&) = delete;

  ~PolledChannel() { close(); }

  /// Closes the channel, also while a send is stuck. A second time does nothing.
  void close();

  /// Sends the bytes later. False when too many sends are waiting already.
  [[nodiscard]] bool send(std::string bytes) { return outbox_.tryPush(std::move(bytes)); }

  /// Readable while there are arrivals.
  [[nodiscard]] int readyFd() const { return inbox_.readyFd(); }

  /// Waits for an arrival. False at the deadline.
  [[nodiscard]] bool wait(cppu::Deadline deadline) const { return inbox_.wait(deadline); }

  /// The oldest arrivals, at most kBytesInTurn.
  [[nodiscard]] std::vector<Arrival> take() { return inbox_.take(kBytesInTurn / QV_IO_RECEIVE_CHUNK); }

 private:
  quorvio::Channel open(const ChannelOptions& options);
  void sendQueued();
  void sendOne(const std::string& bytes);

  SerialPortLock lock_;
  WakingQueue<Arrival> inbox_;
  WakingQueue<std::string> outbox_;
  quorvio::Channel channel_;
  std::thread sender_;
};

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

  /// Ends the line of a hexadecimal answer.
  void finish() const;

  [[nodiscard]] uint64_t received() const { return received_; }
  [[nodiscard]] const std::string& answer() const { return answer_; }  ///< at least its last MiB
  [[nodiscard]] Clock::time_point lastByte() const { return lastByte_; }
  [[nodiscard]] bool isLost() const { return lost_; }  ///< as Arrival::Kind::Lost

 private:
  void handle(const Arrival& arrival);

  PolledChannel& channel_;
  const bool hex_;
  const bool prints_;
  uint64_t received_ = 0;
  std::string answer_;
  Clock::time_point lastByte_ = Clock::now();
  bool sent_ = false;
  bool lost_ = false;
};

}  // namespace qvio_tool
