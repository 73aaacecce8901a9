#include "device/event_settler.h"

#include <array>

#include <utility>

namespace qvio_tool {

std::string NameOf(Change change) {
  constexpr std::array<const char*, 3> kNames{"found", "unavailable", "lost"};
  return kNames.at(static_cast<std::size_t>(change));
}

void EventSettler::add(const TimedEvent& timed) {
  release(timed.moment);
  auto& state = states_[timed.event.device];
  timed.event.found ? addFound(timed, state) : addLoss(timed, state);
}

void EventSettler::addFound(const TimedEvent& timed, State& state) {
  const bool isBack = dropHeld(timed.event.device);
  state.now = timed.event.device.available ? Presence::Available : Presence::Unavailable;
  if (isBack && state.now == state.reported) return;
  // It vanished while it was available, and is back without being so: no event reports that.
  if (isBack && state.now == Presence::Unavailable) return hold(Change::Unavailable, timed);
  state.reported = state.now;
  due_.push_back({Change::Found, timed.event.device, timed.time});
}

void EventSettler::addLoss(const TimedEvent& timed, State& state) {
  // A device that a search sweeps has the availability of its last packet.
  const bool isThere = state.now == Presence::Available && !timed.event.device.available;
  state.now = isThere ? Presence::Unavailable : Presence::Gone;
  hold(isThere ? Change::Unavailable : Change::Lost, timed);
}

void EventSettler::hold(Change change, const TimedEvent& timed) {
  held_.push_back({timed.moment + settle_, {change, timed.event.device, timed.time}});
}

bool EventSettler::dropHeld(const quorvio::Device& device) {
  return std::erase_if(held_, [&](const Held& held) {
           return IdentityOf(held.report.device) == IdentityOf(device);
         }) > 0;
}

void EventSettler::release(Moment now) {
  while (!held_.empty() && held_.front().due <= now) {
    auto report = std::move(held_.front().report);
    held_.pop_front();
    auto& state = states_[report.device];  // new if two losses came in a row
    state.reported = report.change == Change::Lost ? Presence::Gone : Presence::Unavailable;
    const bool isGone = state.reported == Presence::Gone && state.now == Presence::Gone;
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
