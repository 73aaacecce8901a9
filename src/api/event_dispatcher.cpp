#include "api/event_dispatcher.h"

#include "api/event_record.h"

namespace qvio {

void EventDispatcher::set(QV_IO_EventCallback callback, void* userData) {
  const std::lock_guard lock(globalMutex_);
  callback_ = callback;
  userData_ = userData;
}

void EventDispatcher::dispatch(const QV_IO_Event& event) {
  const std::lock_guard lock(globalMutex_);
  if (callback_ != nullptr) callback_(userData_, event.type, &event);
}

}  // namespace qvio
