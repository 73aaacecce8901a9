#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
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
    Notice,  ///< receiving failed, reported once until bytes come again; or the device is being waited for
    Lost,    ///< the peer has closed or reset the link, or a serial port is gone; more may follow
    Sent,    ///< all bytes of one send
    SendFailed,  ///< one send; its bytes may have been sent in part
  };
  Kind kind;
  std::string text;  ///< the bytes, or the reason
};

/// An open channel for a poll loop. Receiving and sending happen on threads of their own, so that neither a
/// device that takes no bytes nor one that floods stops the loop: beyond a bound, receiving waits for take().
///
/// With `reconnects` a device that is lost, or not there yet, is waited for and opened (again). What is to be
/// sent waits as well; a send that a loss cuts off is not repeated.
class PolledChannel {
 public:
  /// Bytes of arrivals that one turn of a poll loop should handle, so that keys and signals have their turn.
  static constexpr std::size_t kBytesInTurn = std::size_t{16} << 10U;

  /// Locks a serial port, opens, and reports surprises on standard error. Throws CommandFailure.
  explicit PolledChannel(ChannelOptions options);
  PolledChannel(const PolledChannel&) = delete;
  PolledChannel& operator=(const PolledChannel&) = delete;

  ~PolledChannel() { close(); }

  /// Closes the channel, also while a send is stuck. A second time does nothing. An attempt to open a device
  /// that is being waited for comes to its end first, at most a second for each address of a host.
  void close();

  /// Sends the bytes later. False when too many sends are waiting already.
  [[nodiscard]] bool send(std::string bytes) { return outbox_.tryPush(std::move(bytes)); }

  /// Whether the device is there.
  [[nodiscard]] bool isOpen() const { return link() != nullptr; }

  /// Readable while there are arrivals.
  [[nodiscard]] int readyFd() const { return inbox_.readyFd(); }

  /// Waits for an arrival. False at the deadline.
  [[nodiscard]] bool wait(cppu::Deadline deadline) const { return inbox_.wait(deadline); }

  /// The oldest arrivals, at most kBytesInTurn.
  [[nodiscard]] std::vector<Arrival> take() { return inbox_.take(kBytesInTurn / QV_IO_RECEIVE_CHUNK); }

 private:
  /// The open device. A serial port is free again for others, and for its return, once this is destroyed.
  struct Link {
    SerialPortLock lock;
    quorvio::Channel channel;
    Clock::time_point since = Clock::now();
  };

  void openFirst();
  void openLasting();
  void open();
  void onLost(std::error_code why);
  void serve();
  void sendOne(const std::string& bytes);
  void awaitDevice();
  bool dropLink();
  [[nodiscard]] bool tryOpen(std::string& lastReason);
  [[nodiscard]] std::shared_ptr<Link> link() const;

  static constexpr std::chrono::milliseconds kFirstDelay{100};

  const ChannelOptions options_;
  WakingQueue<Arrival> inbox_;
  WakingQueue<std::string> outbox_;
  WakingQueue<std::string> losses_{1};             ///< why the open link is lost, for serve()
  mutable std::mutex mutex_;                       ///< guards link_; no other lock is taken under it
  std::shared_ptr<Link> link_;                     ///< none: the device is being waited for
  std::chrono::milliseconds delay_ = kFirstDelay;  ///< before the next attempt to open
  std::thread thread_;                             ///< sends, and opens again
};

}  // namespace qvio_tool
