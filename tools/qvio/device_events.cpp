#include "device_events.h"

#include <sys/eventfd.h>

#include <utility>

#include "listed_text.h"

namespace qvio_tool {

DeviceEvents::DeviceEvents() : ready_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  QV_IO_SetEventCallback(
      [](void* self, uint32_t type, const QV_IO_Event* event) {
        static_cast<DeviceEvents*>(self)->queue(type, event);
      },
      this);
}

void DeviceEvents::queue(uint32_t type, const QV_IO_Event* event) {
  if (type != QV_IO_EVENT_DEVICE_FOUND && type != QV_IO_EVENT_DEVICE_LOST) return;
  const auto record = ListedText(1024, [&](char* buffer, std::size_t* size) {
    return QV_IO_GetDiscoveryEventData(event, "include-all\n", buffer, size);
  });
  const std::lock_guard lock(mutex_);
  events_.push_back({.found = type == QV_IO_EVENT_DEVICE_FOUND,
                     .device = ReadDevices(record).at(0),
                     .moment = std::chrono::steady_clock::now(),
                     .time = std::chrono::system_clock::now()});
  ::eventfd_write(ready_.get(), 1);
}

std::vector<DeviceEvent> DeviceEvents::take() {
  const std::lock_guard lock(mutex_);
  eventfd_t ignored = 0;
  ::eventfd_read(ready_.get(), &ignored);
  return std::exchange(events_, {});
}

}  // namespace qvio_tool
