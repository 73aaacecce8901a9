#pragma once

#include <mutex>
#include <vector>

#include "event_settler.h"
#include "quorvio/quorvio.h"
#include "util/unique_fd.h"

namespace qvio_tool {

/// The library's discovery events, queued for a poll loop: the callback runs with a lock of the library held
/// and must not wait for a slow terminal. One at a time.
class DeviceEvents {
 public:
  DeviceEvents();
  DeviceEvents(const DeviceEvents&) = delete;
  DeviceEvents& operator=(const DeviceEvents&) = delete;
  ~DeviceEvents() { QV_IO_SetEventCallback(nullptr, nullptr); }

  /// Readable while there is an event that was not taken.
  [[nodiscard]] int readyFd() const { return ready_.get(); }

  [[nodiscard]] std::vector<DeviceEvent> take();

 private:
  void queue(uint32_t type, const QV_IO_Event* event);

  cppu::UniqueFd ready_;
  std::mutex mutex_;  ///< guards events_
  std::vector<DeviceEvent> events_;
};

}  // namespace qvio_tool
