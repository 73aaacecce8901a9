#include "nd/device_filter.h"

#include <algorithm>
#include <list>
#include <mutex>
#include <new>
#include <utility>

#include "nd/known_devices.h"
#include "nd/log.h"
#include "util/guarded.h"
#include "util/scope_exit.h"

namespace quorvind {

using Time = std::chrono::steady_clock::time_point;

class DeviceFilter::Core {
 public:
  Core(DeviceCallback added, ChangeCallback changed, DeviceCallback removed, uint32_t type,
       uint8_t protocolId, bool tracksAvailability)
      : deviceType(type),
        added_(std::move(added)),
        changed_(std::move(changed)),
        removed_(std::move(removed)),
        protocolId_(protocolId),
        tracksAvailability_(tracksAvailability) {}

  void onDiscoverInfo(const DiscoverInfo& info);
  [[nodiscard]] std::vector<DiscoverInfo> devices() const;

  /// A search that is running, by the time of its begin.
  using Search = std::list<Time>::const_iterator;
  Search beginSearch();
  void endSearch(Search search);

  /// Removes what has not been heard since the oldest running search began.
  void sweep(const std::string& serialNumber);

  const uint32_t deviceType;

 private:
  /// The effect of an answer on the list.
  struct Effect {
    bool added = false;
    bool changed = false;
    bool removed = false;
  };

  [[nodiscard]] bool accepts(const DiscoverInfo& info) const;
  Effect apply(const DiscoverInfo& info, KnownDevices& known) const;
  static void undo(const Effect& effect, const DiscoverInfo& info, KnownDevices& known);
  static bool update(DiscoverInfo& known, const DiscoverInfo& info);
  static bool removeUnavailable(KnownDevices::Position position, const DiscoverInfo& info,
                                KnownDevices& known);

  const DeviceCallback added_;
  const ChangeCallback changed_;
  const DeviceCallback removed_;
  const uint8_t protocolId_;
  const bool tracksAvailability_;

  /// Held around a change of the list and its callbacks, so that both happen in the same order. Comes before
  /// every lock that a callback takes.
  std::mutex order_;
  cppu::Guarded<KnownDevices> known_;
  cppu::Guarded<std::list<Time>> searches_;  ///< the running ones, the oldest first
};

bool DeviceFilter::Core::accepts(const DiscoverInfo& info) const {
  return (deviceType == kAnyDeviceType || deviceType == info.DeviceType) &&
         (protocolId_ == 0 || protocolId_ == info.ProtocolId);
}

std::vector<DiscoverInfo> DeviceFilter::Core::devices() const {
  return known_.with([](const KnownDevices& known) { return known.copy(); });
}

void DeviceFilter::Core::onDiscoverInfo(const DiscoverInfo& info) {
  // Before the lock: most answers on a shared network may be for other filters.
  if (!accepts(info)) return;
  const std::lock_guard lock(order_);
  const auto effect = known_.with([&](KnownDevices& known) { return apply(info, known); });
  try {
    if (effect.added) added_(info);
    if (effect.changed) changed_(info, {Change::AvailabilityChanged});
    if (effect.removed) removed_(info);
  } catch (const std::bad_alloc&) {
    known_.with([&](KnownDevices& known) { undo(effect, info, known); });
    throw;
  }
}

/// After a callback that ran out of memory: the device's next answer is reported like this one.
void DeviceFilter::Core::undo(const Effect& effect, const DiscoverInfo& info, KnownDevices& known) {
  const auto position = known.find(info);
  if (position == known.end()) return;
  if (effect.added) {
    known.erase(position);
  } else if (effect.changed) {
    position->Available = !info.Available;
  }
}

DeviceFilter::Core::Effect DeviceFilter::Core::apply(const DiscoverInfo& info, KnownDevices& known) const {
  const bool countsAsGone = tracksAvailability_ && !info.Available;
  const auto position = known.find(info);
  if (position != known.end()) {
    if (countsAsGone) return {.changed = removeUnavailable(position, info, known), .removed = true};
    return {.changed = update(*position, info)};
  }
  if (countsAsGone) return {};
  if (known.isFull()) {
    LogWarning("Too many devices, ignored", info.SerialNumber);
    return {};
  }
  known.append(info);
  return {.added = true};
}

/// Whether the availability has changed.
bool DeviceFilter::Core::update(DiscoverInfo& known, const DiscoverInfo& info) {
  known.LastSeen = info.LastSeen;
  return std::exchange(known.Available, info.Available) != info.Available;
}

/// Whether a change is reported with the removal. Owners that track availability rely on this rule: the
/// device after the removed one also counts as heard and unavailable until it answers itself. If there is
/// none, the availability of the removed one decides.
bool DeviceFilter::Core::removeUnavailable(KnownDevices::Position position, const DiscoverInfo& info,
                                           KnownDevices& known) {
  const bool wasAvailable = position->Available;
  const auto next = known.erase(position);
  return next != known.end() ? update(*next, info) : wasAvailable;
}

DeviceFilter::Core::Search DeviceFilter::Core::beginSearch() {
  return searches_.with([](std::list<Time>& running) {
    running.push_back(std::chrono::steady_clock::now());
    return Search(std::prev(running.end()));
  });
}

void DeviceFilter::Core::endSearch(Search search) {
  searches_.with([&](std::list<Time>& running) { running.erase(search); });
}

void DeviceFilter::Core::sweep(const std::string& serialNumber) {
  const std::lock_guard lock(order_);
  const auto limit = searches_.with([](const std::list<Time>& running) { return running.front(); });
  // All are taken out first: a callback that asks for the devices must not see one that is about to go.
  auto silent = known_.with([&](KnownDevices& known) {
    return known.takeIf([&](const DiscoverInfo& info) {
      return info.LastSeen < limit && (serialNumber.empty() || info.SerialNumber == serialNumber);
    });
  });
  // The list is unlocked here, since a callback may ask for the devices.
  try {
    for (; !silent.empty(); silent.pop_front()) removed_(silent.front());
  } catch (const std::bad_alloc&) {
    // The next search reports it, and those that come after it.
    known_.with([&](KnownDevices& known) {
      for (const auto& info : silent) known.append(info);
    });
    throw;
  }
}

DeviceFilter::DeviceFilter(std::shared_ptr<Host> host, DeviceCallback added, ChangeCallback changed,
                           DeviceCallback removed, unsigned int deviceType, unsigned char protocolId,
                           bool tracksAvailability)
    : core_(std::make_shared<Core>(std::move(added), std::move(changed), std::move(removed), deviceType,
                                   protocolId, tracksAvailability)),
      host_(std::move(host)),
      registration_(host_->addListener(
          [core = core_](const DiscoverInfo& info) { return core->onDiscoverInfo(info), true; })) {}

DeviceFilter::~DeviceFilter() { host_->removeListener(registration_); }

bool DeviceFilter::onDiscoverInfo(const DiscoverInfo& info) {
  core_->onDiscoverInfo(info);
  return true;
}

std::vector<DiscoverInfo> DeviceFilter::devices() const { return core_->devices(); }

void DeviceFilter::search(std::chrono::milliseconds timeout, const std::string& serialNumber) {
  cppu::CancellableWait uncancelled;
  search(timeout, serialNumber, uncancelled);
}

void DeviceFilter::search(std::chrono::milliseconds timeout, const std::string& serialNumber,
                          cppu::CancellableWait& wait) {
  const auto running = core_->beginSearch();
  const cppu::ScopeExit ended([&] { core_->endSearch(running); });
  // From the recorded start, before the request goes out: an answer can never be older than its search.
  const auto deadline = *running + timeout;
  host_->discover(core_->deviceType, serialNumber);
  if (wait.waitUntil(deadline)) core_->sweep(serialNumber);
}

}  // namespace quorvind
