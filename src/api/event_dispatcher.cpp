#include "api/event_dispatcher.h"

#include <utility>

#include "api/event_record.h"
#include "util/fork.h"

namespace qvio {

void EventDispatcher::set(QV_IO_EventCallback callback, void* userData) {
  const std::lock_guard lock(globalMutex_);
  callback_ = callback;
  userData_ = userData;
}

void EventDispatcher::dispatch(const QV_IO_Event& event, const std::function<bool()>& isStillWanted) {
  const std::lock_guard lock(globalMutex_);
  if (callback_ == nullptr || !isStillWanted()) return;
  cppu::CallApplication(callback_, userData_, event.type, &event);
}

void EventDispatcher::raise(quorvind::DiscoveryEvent event, PropertyRecord device,
                            const std::function<bool()>& isStillWanted) {
  // The record is built before the lock is taken.
  const bool found = event == quorvind::DiscoveryEvent::DeviceFound;
  const QV_IO_Event record{.type = found ? QV_IO_EVENT_DEVICE_FOUND : QV_IO_EVENT_DEVICE_LOST,
                           .device = std::move(device)};
  dispatch(record, isStillWanted);
}

}  // namespace qvio
