#pragma once

#include <chrono>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "device/identity.h"

namespace qvio_tool {

/// An event of the library and when it came.
struct TimedEvent {
  quorvio::DeviceEvent event;
  std::chrono::steady_clock::time_point moment;
  std::chrono::system_clock::time_point time;  ///< the same as a date
};

enum class Change { Found, Unavailable, Lost };

/// "found", "unavailable", "lost".
std::string NameOf(Change change);

/// One line of `watch`.
struct DeviceReport {
  Change change;
  quorvio::Device device;
  std::chrono::system_clock::time_point time;
};

/// Makes reports of events. A loss is held back for a while; if the device is found again in that time,
/// neither is reported. Events are added in the order of their moments.
class EventSettler {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  explicit EventSettler(std::chrono::milliseconds settle) : settle_(settle) {}

  void add(const TimedEvent& timed);

  /// The reports that have become due and have not been taken.
  [[nodiscard]] std::vector<DeviceReport> take(Moment now);

  /// When the next report that is held back becomes due.
  [[nodiscard]] std::optional<Moment> nextDue() const;

 private:
  enum class Presence { Gone, Unavailable, Available };
  struct State {
    Presence reported = Presence::Gone;
    Presence now = Presence::Gone;
  };
  struct Held {
    Moment due;
    DeviceReport report;
  };

  void addFound(const TimedEvent& timed, State& state);
  void addLoss(const TimedEvent& timed, State& state);
  void hold(Change change, const TimedEvent& timed);
  void release(Moment now);
  bool dropHeld(const quorvio::Device& device);

  std::chrono::milliseconds settle_;
  std::map<quorvio::Device, State, DeviceOrder> states_;  ///< except of devices that are gone and reported so
  std::list<Held> held_;                                  ///< in the order in which they become due
  std::vector<DeviceReport> due_;
};

}  // namespace qvio_tool
