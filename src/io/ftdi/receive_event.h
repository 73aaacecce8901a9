#pragma once

#include <chrono>
#include <mutex>
#include <optional>

#include "io/ftdi/d2xx.h"

namespace qvio {

/// The event that the driver signals when bytes arrive, and we when the channel is closed. Its mutex is
/// locked by the driver too, so that nothing may be called back while it is held. Satisfies BasicLockable.
class ReceiveEvent {
 public:
  ReceiveEvent();
  ReceiveEvent(const ReceiveEvent&) = delete;
  ReceiveEvent& operator=(const ReceiveEvent&) = delete;
  ~ReceiveEvent();

  /// For FT_SetEventNotification.
  [[nodiscard]] void* driverHandle() { return &event_; }

  void lock() { pthread_mutex_lock(&event_.mutex); }
  void unlock() { pthread_mutex_unlock(&event_.mutex); }

  /// Caller holds the lock.
  void signal() { pthread_cond_signal(&event_.condition); }

  /// Caller holds the lock. False when the deadline has passed.
  [[nodiscard]] bool wait(const std::optional<std::chrono::steady_clock::time_point>& deadline);

 private:
  d2xx::EventHandle event_{};
};

}  // namespace qvio
