#pragma once

#include <functional>
#include <mutex>

#include "nd/discovery_events.h"
#include "quorvio/quorvio.h"

namespace qvio {

/// The application's callback for global events. Any thread.
class EventDispatcher final : public quorvind::DiscoveryEvents {
 public:
  constexpr explicit EventDispatcher(std::mutex& globalMutex) : globalMutex_(globalMutex) {}

  /// Replaces callback and user data as a pair; null switches events off. On return the callback set before
  /// is not running and never will again.
  void set(QV_IO_EventCallback callback, void* userData);

  /// Calls the callback, if there is one, with the global mutex held: that is what makes set() a barrier.
  /// @param isStillWanted  asked under the mutex; false drops the event
  void dispatch(const QV_IO_Event& event, const std::function<bool()>& isStillWanted);

  void raise(quorvind::DiscoveryEvent event, PropertyRecord device,
             const std::function<bool()>& isStillWanted) override;

 private:
  std::mutex& globalMutex_;  ///< guards callback and user data
  QV_IO_EventCallback callback_ = nullptr;
  void* userData_ = nullptr;
};

}  // namespace qvio
