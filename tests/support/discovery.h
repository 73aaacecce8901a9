#pragma once

#include <unistd.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "quorvio/quorvio.h"
#include "sim/controller.h"
#include "sim/controller_group.h"
#include "support/wait.h"

namespace qvtest {

inline constexpr const char* kLoopback = "127.0.0.1";

/// A serial number that no other test uses: all of them hear each other on loopback.
inline std::string OwnSerial(const std::string& name) { return name + '-' + std::to_string(::getpid()); }

/// The text of a listing call; empty when it fails.
template <class List>
std::string ListingText(List list, uint32_t& result) {
  std::string text(1 << 20, '\0');
  std::size_t size = text.size();
  result = list(text.data(), &size);
  text.resize(result == QV_IO_OK ? size : 0);
  return text;
}

struct ListResult {
  uint32_t result;
  std::string text;
};

/// Lists network devices on the interface with further options.
inline ListResult ListDevices(const std::string& iface, const std::string& options = "only-locator") {
  const auto all = "iface-type network\niface network:" + iface + '\n' + options;
  ListResult listing{};
  listing.text = ListingText(
      [&](char* buffer, std::size_t* size) {
        return QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, all.c_str(), buffer, size);
      },
      listing.result);
  return listing;
}

/// The global event callback during its life; records events of one serial number.
class EventRecorder {
 public:
  explicit EventRecorder(std::string serialNumber) : serialNumber_(std::move(serialNumber)) {
    QV_IO_SetEventCallback(&EventRecorder::onEvent, this);
  }
  EventRecorder(const EventRecorder&) = delete;
  EventRecorder& operator=(const EventRecorder&) = delete;
  ~EventRecorder() {
    QV_IO_SetEventCallback(nullptr, nullptr);
    QV_IO_SetGlobalOptions("discovery-iface network:none");
  }

  /// One entry for each event, as "found 5000 available=1".
  [[nodiscard]] std::vector<std::string> events() const {
    const std::lock_guard lock(mutex_);
    return events_;
  }
  [[nodiscard]] bool eventually(const std::vector<std::string>& wanted) const {
    return Eventually([&] { return events() == wanted; });
  }

 private:
  static std::string text(const QV_IO_Event* event, const char* options) {
    uint32_t result = 0;
    return ListingText(
        [&](char* buffer, std::size_t* size) {
          return QV_IO_GetDiscoveryEventData(event, options, buffer, size);
        },
        result);
  }

  static void onEvent(void* self, uint32_t type, const QV_IO_Event* event) {
    auto& recorder = *static_cast<EventRecorder*>(self);
    if (text(event, "include-device-sn") != "device-sn=" + recorder.serialNumber_) return;
    const std::string kind = type == QV_IO_EVENT_DEVICE_FOUND ? "found " : "lost ";
    const std::lock_guard lock(recorder.mutex_);
    recorder.events_.push_back(kind + text(event, "include-network-port\ninclude-available"));
  }

  const std::string serialNumber_;
  mutable std::mutex mutex_;  ///< guards events_
  std::vector<std::string> events_;
};

/// Simulated controllers on one interface.
class Controllers {
 public:
  explicit Controllers(const std::string& address = kLoopback, const qvsim::DiscoveryFaults& faults = {},
                       std::chrono::milliseconds spread = std::chrono::milliseconds(5))
      : group_(loop_, {.address = address,
                       .spread = spread,
                       .faults = faults,
                       .longestWait = std::chrono::milliseconds(5)}) {}

  uint16_t add(const std::string& serialNumber, uint32_t type = 7, uint8_t protocolId = 1,
               const std::string& info = "Axis") {
    return group_.add({serialNumber, type, protocolId, info}, qvsim::ServeController({serialNumber, 0}));
  }

  qvsim::ControllerGroup* operator->() { return &group_; }

 private:
  qvsim::EventLoop loop_;
  qvsim::ControllerGroup group_;
};

}  // namespace qvtest
