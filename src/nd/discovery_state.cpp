#include "nd/discovery_state.h"

#include <new>
#include <utility>

#include "nd/device_record.h"
#include "nd/errors.h"
#include "nd/local_addresses.h"
#include "nd/log.h"
#include "util/never_destroyed.h"
#include "util/scope_exit.h"

namespace quorvind {
namespace {

constexpr std::chrono::hours kRememberedFor{1};  // a record of an interface that nobody listens on

thread_local bool isDelivering = false;

/// Caller holds the state's mutex; the device is in the cache.
void WakeThoseWhoAwait(QuorviNDState& state, const std::string& serialNumber) {
  for (auto& awaited : state.awaited) {
    if (awaited.serialNumber != serialNumber) continue;
    awaited.heard = true;
    state.heard.notify_all();
  }
}

/// Called by a filter: updates the cache and raises an event if the interface is watched.
void OnDevice(const IP4& local, DiscoveryEvent event, const DiscoverInfo& info) {
  auto& state = State();
  std::unique_lock lock(state.mutex);
  if (event == DiscoveryEvent::DeviceFound) {
    state.cache.insert(local, info);
    WakeThoseWhoAwait(state, info.SerialNumber);
  } else {
    state.cache.erase(local, info);
  }
  if (!state.active.contains(local)) return;
  const auto format = state.format;
  auto* const events = state.events;
  lock.unlock();
  isDelivering = true;
  const cppu::ScopeExit delivered([] { isDelivering = false; });
  events->raise(event, MakeDeviceRecord(info, format, local), [&] {
    const std::lock_guard again(state.mutex);
    return state.active.contains(local);
  });
}

/// Every answer, after the filter has dealt with it.
void OnAnswer(const IP4& local, const DiscoverInfo& info) {
  auto& state = State();
  const std::lock_guard lock(state.mutex);
  if (state.cache.refresh(local, info)) WakeThoseWhoAwait(state, info.SerialNumber);
}

std::shared_ptr<DiscoverChannel> MakeChannel(const IP4& address) {
  const auto host = std::make_shared<Host>();
  const auto found = [address](const DiscoverInfo& info) {
    OnDevice(address, DiscoveryEvent::DeviceFound, info);
  };
  const auto lost = [address](const DiscoverInfo& info) {
    OnDevice(address, DiscoveryEvent::DeviceLost, info);
  };
  const auto changed = [found, lost](const DiscoverInfo& info, cppu::Flags<DeviceFilter::Change> change) {
    if (change.has(DeviceFilter::Change::AvailabilityChanged)) info.Available ? found(info) : lost(info);
  };
  const auto filter = std::make_shared<DeviceFilter>(host, found, changed, lost, kAnyDeviceType, 0, false);
  host->addListener([address](const DiscoverInfo& info) { return OnAnswer(address, info), true; });
  host->start(IP4Set{address});
  return std::make_shared<DiscoverChannel>(DiscoverChannel{host, filter, {}, address});
}

/// Caller holds the state's mutex. Throws QuorviNDException.
std::shared_ptr<DiscoverChannel> GetOrCreateDiscoverChannel(QuorviNDState& state, const IP4& address) {
  auto& entry = state.registry[address];
  if (auto channel = entry.lock()) return channel;
  auto channel = MakeChannel(address);
  entry = channel;
  return channel;
}

}  // namespace

QuorviNDState& State() {
  static cppu::NeverDestroyed<QuorviNDState> state;
  return state.value;
}

void RenewState() {
  ::new (&State()) QuorviNDState;
  isDelivering = false;  // the event, if there is one, is the parent's
}

bool IsDelivering() noexcept { return isDelivering; }

void PurgeExpired(QuorviNDState& state) {
  std::erase_if(state.registry, [](const auto& entry) { return entry.second.expired(); });
  state.cache.expire(std::chrono::steady_clock::now() - kRememberedFor,
                     [&](const IP4& local) { return !state.registry.contains(local); });
}

IP4Set Searchable(QuorviNDState& state, std::span<const IP4> addresses) {
  auto searchable = LocalOnes(addresses);
  const std::lock_guard lock(state.mutex);
  for (const auto& address : addresses) {
    const auto known = state.registry.find(address);
    if (known != state.registry.end() && !known->second.expired()) searchable.insert(address);
  }
  return searchable;
}

ChannelList UsableChannels(QuorviNDState& state, const IP4Set& addresses, std::string& problem) {
  ChannelList channels;
  for (const auto& address : addresses) {
    try {
      channels.push_back(GetOrCreateDiscoverChannel(state, address));
    } catch (const QuorviNDException& failure) {
      problem = "cannot discover on " + IP4ToString(address) + ": " + failure.what();
      LogWarning("Interface not usable", failure.what());
    }
  }
  return channels;
}

}  // namespace quorvind
