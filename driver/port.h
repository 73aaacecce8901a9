#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "driver/chip.h"
#include "driver/chip_control.h"
#include "driver/link.h"
#include "io/ftdi/d2xx.h"
#include "util/byte_queue.h"
#include "util/thread.h"
#include "util/unique_fd.h"

namespace qvusb {

/// One channel while it is open: its queue, its thread, and the event of the application. Functions that
/// return uint32_t give a status; those that ask the chip throw std::system_error. Any thread.
///
/// Several reads are pending at the chip at all times, since a chip drops bytes that nobody fetches; only a
/// queue that is full holds them up. The application's event is signalled by the port's thread without any
/// lock of ours, since the application may call us while it holds the event's mutex.
class Port final : public cppu::Worker {
 public:
  Port(const Channel& channel, std::unique_ptr<Link> link);
  ~Port() override;

  /// Resets the chip and begins to read. Throws std::system_error.
  /// @param self  this port; its thread keeps it
  void open(std::shared_ptr<Port> self);

  /// Ends the calls in progress, and the thread; gives the channel back. When it returns the event is not
  /// touched any more.
  void close() noexcept;

  /// Waits until all bytes are there or the read time-out has passed.
  uint32_t read(char* buffer, std::size_t size, uint32_t& got);

  /// Returns after a twentieth of a second at the latest, with what has gone.
  uint32_t write(std::string_view bytes, uint32_t& written);

  uint32_t getStatus(uint32_t& received, uint32_t& toTransmit, uint32_t& events);
  void purge(bool received, bool toTransmit);
  void setTimeouts(uint32_t readMs, uint32_t writeMs);  ///< 0: none
  void setTransferSize(std::size_t bytes);              ///< of reads
  uint32_t setSpeed(uint32_t baud);

  /// @param event  null: none; the former one is not touched any more
  void setEvent(uint32_t mask, qvio::d2xx::EventHandle* event);

  [[nodiscard]] const Channel& channel() const { return channel_; }
  [[nodiscard]] const ChipControl& control() const { return control_; }

  // The thread's work.
  void run() override;
  void stop() noexcept override;
  void abandon() noexcept override;

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Clock = std::chrono::steady_clock;

  void waitForWork();
  void collect(Lock& held);
  void take(const Transfer& transfer);
  void submitReads(Lock& held);
  void retryLater(Lock& held, int error);
  void loseChip(Lock& held);
  void announce(Lock& held);
  void notify();
  void wakeThread() const noexcept;
  uint32_t writePiece(std::string_view piece, Clock::time_point end, std::size_t& done);

  const Channel channel_;
  const std::unique_ptr<Link> link_;
  const ChipControl control_;
  const cppu::UniqueFd wakeUp_;
  std::atomic<bool> stopped_ = false;  ///< the thread ends
  cppu::Thread thread_;

  std::mutex writing_;  ///< held during a write; taken before mutex_
  std::mutex mutex_;    ///< guards what follows, and the submission of transfers; a leaf
  std::condition_variable readable_;
  std::condition_variable written_;
  std::condition_variable notified_;
  bool isClosed_ = false;
  bool isGone_ = false;    ///< the chip was unplugged
  bool isPaused_ = false;  ///< the queue is full
  bool isPurging_ = false;
  int failuresInARow_ = 0;
  std::optional<Clock::time_point> retryAt_;  ///< no reads before
  cppu::ByteQueue received_;
  std::array<Transfer, 4> reads_;
  Transfer write_;
  std::size_t readSize_;
  std::size_t pieceSize_;
  std::chrono::milliseconds readTimeout_{0};
  std::chrono::milliseconds writeTimeout_{0};
  uint32_t eventMask_ = 0;
  uint32_t events_ = 0;
  qvio::d2xx::EventHandle* event_ = nullptr;
  bool isDue_ = false;  ///< the event has to be signalled
  bool isNotifying_ = false;
};

}  // namespace qvusb
