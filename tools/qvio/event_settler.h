#pragma once

#include <chrono>
#include <list>
#include <map>
#include <optional>
#include <vector>

#include "device.h"

namespace qvio_tool {

/// A device was found or lost, as the library raised it.
struct DeviceEvent {
  bool found = false;
  Device device;
  std::chrono::steady_clock::time_point moment;
  std::chrono::system_clock::time_point time;  ///< the same for people
};

enum class Change { Found, Unavailable, Lost };

/// What is told of a device.
struct DeviceReport {
  Change change;
  Device device;
  std::chrono::system_clock::time_point time;
};

/// Makes reports of events. A loss is held back for a while; if the device is found again meanwhile, neither
/// is reported. Events are added in the order of their moments.
class EventSettler {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  explicit EventSettler(std::chrono::milliseconds settle) : settle_(settle) {}

  void add(const DeviceEvent& event);

  /// The reports that have become due and were not taken.
  [[nodiscard]] std::vector<DeviceReport> take(Moment now);

  /// When the next report that is held back becomes due.
  [[nodiscard]] std::optional<Moment> nextDue() const;

 private:
  enum class Presence { Gone, Unavailable, Available };
  struct State {
    Presence told = Presence::Gone;
    Presence now = Presence::Gone;
  };
  struct Held {
    Moment due;
    DeviceReport report;
  };

  void addFound(const DeviceEvent& event, State& state);
  void addLoss(const DeviceEvent& event, State& state);
  void hold(Change change, const DeviceEvent& event);
  void release(Moment now);
  bool dropHeld(const Device& device);

  std::chrono::milliseconds settle_;
  std::map<Device, State, DeviceOrder> states_;  ///< of the devices that are not told and known to be gone
  std::list<Held> held_;                         ///< in the order in which they become due
  std::vector<DeviceReport> due_;
};

}  // namespace qvio_tool
