#include "nd/device_filter.h"

#include <new>
#include <thread>
#include <utility>

namespace quorvind {

DeviceFilter::DeviceFilter(std::shared_ptr<Host> host, DeviceCallback added, ChangeCallback changed,
                           DeviceCallback removed, unsigned int deviceType, unsigned char protocolId,
                           bool tracksAvailability)
    : added_(std::move(added)),
      changed_(std::move(changed)),
      removed_(std::move(removed)),
      deviceType_(deviceType),
      protocolId_(protocolId),
      tracksAvailability_(tracksAvailability),
      host_(std::move(host)),
      registration_(host_->addListener([this](const DiscoverInfo& info) { return onDiscoverInfo(info); })) {}

DeviceFilter::~DeviceFilter() { host_->removeListener(registration_); }

std::vector<DiscoverInfo> DeviceFilter::devices() const {
  return known_.with([](const KnownDevices& known) { return known.copy(); });
}

bool DeviceFilter::accepts(const DiscoverInfo& info) const {
  return (deviceType_ == kAnyDeviceType || deviceType_ == info.DeviceType) &&
         (protocolId_ == 0 || protocolId_ == info.ProtocolId);
}

bool DeviceFilter::onDiscoverInfo(const DiscoverInfo& info) {
  if (!accepts(info)) return true;
  const auto effect = known_.with([&](KnownDevices& known) { return apply(info, known); });
  try {
    if (effect.added) added_(info);
    if (effect.changed) changed_(info, {Change::AvailabilityChanged});
    if (effect.removed) removed_(info);
  } catch (const std::bad_alloc&) {
    known_.with([&](KnownDevices& known) { undo(effect, info, known); });
    throw;
  }
  return true;
}

/// After a callback for which there was no memory: the device's next answer is told like this one.
void DeviceFilter::undo(const Effect& effect, const DiscoverInfo& info, KnownDevices& known) {
  const auto position = known.find(info);
  if (position == known.end()) return;
  if (effect.added) {
    known.erase(position);
  } else if (effect.changed) {
    position->Available = !info.Available;
  }
}

DeviceFilter::Effect DeviceFilter::apply(const DiscoverInfo& info, KnownDevices& known) const {
  const bool countsAsGone = tracksAvailability_ && !info.Available;
  const auto position = known.find(info);
  if (position == known.end()) {
    if (!countsAsGone) known.append(info);
    return {.added = !countsAsGone};
  }
  if (countsAsGone) return {.changed = removeUnavailable(position, info, known), .removed = true};
  return {.changed = update(*position, info)};
}

/// Whether the availability has changed.
bool DeviceFilter::update(DiscoverInfo& known, const DiscoverInfo& info) {
  known.LastSeen = info.LastSeen;
  return std::exchange(known.Available, info.Available) != info.Available;
}

/// Whether a change is told beside the removal. Owners that track availability know a removal by this: the
/// device behind the removed one counts as heard and unavailable with it, until it answers itself, and where
/// there is none the removed one's own availability decides.
bool DeviceFilter::removeUnavailable(KnownDevices::Position position, const DiscoverInfo& info,
                                     KnownDevices& known) {
  const bool wasAvailable = position->Available;
  const auto next = known.erase(position);
  return next != known.end() ? update(*next, info) : wasAvailable;
}

void DeviceFilter::search(std::chrono::milliseconds timeout, const std::string& serialNumber) {
  const auto start = std::chrono::steady_clock::now();
  host_->discover(deviceType_, serialNumber);
  if (timeout.count() > 0) std::this_thread::sleep_for(timeout);
  // Told after the lock is let go: the callback takes locks that come before this one.
  auto silent = known_.with([&](KnownDevices& known) { return known.takeOlderThan(start); });
  try {
    for (; !silent.empty(); silent.pop_front()) removed_(silent.front());
  } catch (const std::bad_alloc&) {
    // The next search tells it, and those that come after it.
    known_.with([&](KnownDevices& known) {
      for (const auto& info : silent) known.append(info);
    });
    throw;
  }
}

}  // namespace quorvind
