#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <span>

#include "io/ftdi/chip.h"
#include "io/ftdi/receive_event.h"
#include "io/io_device.h"
#include "options/option_sets.h"
#include "util/stop_signal.h"
#include "util/thread.h"

namespace qvio {

/// A USB link through FTDI's driver. The receive thread sleeps in the driver's event and asks for the chip's
/// state once in a period, so that an unplugged chip is noticed.
class IoFtdi final : public IoDevice, private cppu::Worker {
 public:
  using IoDevice::IoDevice;

  void open(std::shared_ptr<IoDevice> self) override;
  void close(bool wait) override;
  void send(std::span<const uint8_t> bytes) override;

  /// "ftdi-id": the chip's unique number.
  [[nodiscard]] std::string property(std::string_view key) override;

 private:
  using Time = std::chrono::steady_clock::time_point;

  /// What the driver says of the receive queue.
  struct QueueState {
    uint32_t waiting = 0;
    uint32_t notice = QV_IO_OK;  ///< of a failed query; then nothing counts as waiting
  };

  void start(std::shared_ptr<IoDevice> self);

  // The receive thread's work.
  void run() override;
  void stop() noexcept override;
  void abandon() noexcept override { stop_.reset(); }  // the driver's descriptors are its own affair

  [[nodiscard]] uint32_t awaitBytes();
  [[nodiscard]] QueueState queryUnlessStopped(const std::optional<Time>& deadline, bool failureWasReported,
                                              bool& timedOut);
  [[nodiscard]] QueueState query() const;
  void receive(uint32_t waiting, std::span<uint8_t> buffer);

  std::chrono::milliseconds healthCheck_{};  ///< period; 0: the thread waits without limit
  std::chrono::milliseconds sendLimit_{};
  std::optional<ReceiveEvent> event_;     ///< there from open on; the driver uses it until the chip is closed
  std::optional<cppu::StopSignal> stop_;  ///< requested with the event's lock held
  /// Keeps the receive thread from closing the chip while calls of the application use it; those share the
  /// lock. Nothing else is locked while it is held.
  std::shared_mutex inUse_;
  Chip chip_;
  cppu::Thread thread_;
};

}  // namespace qvio
