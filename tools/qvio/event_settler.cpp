#include "event_settler.h"

#include <utility>

namespace qvio_tool {

void EventSettler::add(const DeviceEvent& event) {
  release(event.moment);
  auto& state = states_[event.device];
  event.found ? addFound(event, state) : addLoss(event, state);
}

void EventSettler::addFound(const DeviceEvent& event, State& state) {
  const bool isBack = dropHeld(event.device);
  state.now = event.device.available ? Presence::Available : Presence::Unavailable;
  if (isBack && state.now == state.told) return;
  // It went silently while it was available, and no event of its own tells that it is back without being so.
  if (isBack && state.now == Presence::Unavailable) return hold(Change::Unavailable, event);
  state.told = state.now;
  due_.push_back({Change::Found, event.device, event.time});
}

void EventSettler::addLoss(const DeviceEvent& event, State& state) {
  // A device that a search sweeps has the availability that it was last heard with.
  const bool isThere = state.now == Presence::Available && !event.device.available;
  state.now = isThere ? Presence::Unavailable : Presence::Gone;
  hold(isThere ? Change::Unavailable : Change::Lost, event);
}

void EventSettler::hold(Change change, const DeviceEvent& event) {
  held_.push_back({event.moment + settle_, {change, event.device, event.time}});
}

bool EventSettler::dropHeld(const Device& device) {
  return std::erase_if(
             held_, [&](const Held& held) { return held.report.device.identity() == device.identity(); }) > 0;
}

void EventSettler::release(Moment now) {
  while (!held_.empty() && held_.front().due <= now) {
    auto report = std::move(held_.front().report);
    held_.pop_front();
    auto& state = states_[report.device];  // there is none if two losses came in a row
    state.told = report.change == Change::Lost ? Presence::Gone : Presence::Unavailable;
    const bool isGone = state.told == Presence::Gone && state.now == Presence::Gone;
    if (isGone) states_.erase(report.device);
    due_.push_back(std::move(report));
  }
}

std::vector<DeviceReport> EventSettler::take(Moment now) {
  release(now);
  return std::exchange(due_, {});
}

std::optional<EventSettler::Moment> EventSettler::nextDue() const {
  if (held_.empty()) return {};
  return held_.front().due;
}

}  // namespace qvio_tool
