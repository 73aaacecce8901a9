#include "api/event_dispatcher.h"

#include <utility>

#include "api/event_record.h"

namespace qvio {

void EventDispatcher::set(QV_IO_EventCallback callback, void* userData) {
  const std::lock_guard lock(globalMutex_);
  callback_ = callback;
  userData_ = userData;
}

void EventDispatcher::dispatch(const QV_IO_Event& event) {
  const std::lock_guard lock(globalMutex_);
  call(event);
}

void EventDispatcher::raise(quorvind::DiscoveryEvent event, PropertyRecord device,
                            const std::function<bool()>& isStillWanted) {
  const bool found = event == quorvind::DiscoveryEvent::DeviceFound;
  const QV_IO_Event record{.type = found ? QV_IO_EVENT_DEVICE_FOUND : QV_IO_EVENT_DEVICE_LOST,
                           .device = std::move(device)};
  const std::lock_guard lock(globalMutex_);
  if (isStillWanted()) call(record);
}

bool EventDispatcher::isDelivering() const { return deliveringThread_ == ::pthread_self(); }

void EventDispatcher::call(const QV_IO_Event& event) {
  struct Delivery {
    explicit Delivery(std::atomic<pthread_t>& mark) : thread(mark) { thread = ::pthread_self(); }
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;
    ~Delivery() { thread = pthread_t{}; }
    std::atomic<pthread_t>& thread;
  };
  if (callback_ == nullptr) return;
  const Delivery delivery(deliveringThread_);
  callback_(userData_, event.type, &event);
}

}  // namespace qvio
