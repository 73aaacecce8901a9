#pragma once

#include <mutex>

#include "quorvio/quorvio.h"

namespace qvio {

/// The application's callback for global events. Any thread.
class EventDispatcher {
 public:
  constexpr explicit EventDispatcher(std::mutex& globalMutex) : globalMutex_(globalMutex) {}

  /// Replaces callback and user data as a pair; null switches events off. On return the callback set before
  /// is not running and never will again.
  void set(QV_IO_EventCallback callback, void* userData);

  /// Calls the callback, if there is one, with the global mutex held: that is what makes set() a barrier.
  void dispatch(const QV_IO_Event& event);

 private:
  std::mutex& globalMutex_;  ///< guards what follows
  QV_IO_EventCallback callback_ = nullptr;
  void* userData_ = nullptr;
};

}  // namespace qvio
