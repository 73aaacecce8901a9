#include "nd/discovery.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "nd/connection.h"
#include "nd/device_filter.h"
#include "nd/device_record.h"
#include "nd/errors.h"
#include "nd/host.h"
#include "nd/interface_texts.h"
#include "nd/log.h"
#include "nd/search_task.h"
#include "options/locator.h"
#include "options/result.h"
#include "util/never_destroyed.h"

namespace quorvind {
namespace {

using qvio::Failure;
using qvio::NetworkLocatorFormat;
using std::chrono::milliseconds;

constexpr std::chrono::seconds kFreshFor{3};

/// What listens on one local address. Destroying it waits for the host's thread: never with a lock held, and
/// never on a thread that delivers an event.
struct DiscoverChannel {
  std::shared_ptr<Host> host;
  std::shared_ptr<DeviceFilter> filter;
  std::chrono::steady_clock::time_point lastSearch{};
  IP4 address{};
};
using ChannelList = std::vector<std::shared_ptr<DiscoverChannel>>;

template <class Value>
using ByAddress = std::unordered_map<IP4, Value, IP4AddressHash>;
using DeviceSet = std::unordered_set<DiscoverInfo, DeviceHash, SameDevice>;

struct QuorviNDState {
  std::mutex mutex;  ///< guards all that follows; no channel is destroyed while it is held
  ByAddress<std::weak_ptr<DiscoverChannel>> registry{kInitialBuckets};
  ByAddress<std::shared_ptr<DiscoverChannel>> active{kInitialBuckets};  ///< of the interfaces to watch
  ByAddress<DeviceSet> cache{kInitialBuckets};
  NetworkLocatorFormat format = NetworkLocatorFormat::SerialNumber;
  DiscoveryEvents* events = nullptr;  ///< set before any channel is active
  ChannelList deferred;               ///< used while an event was delivered, released by the next caller
  bool isDown = false;                ///< the library is being unloaded: nothing is kept any more
};

QuorviNDState& State() {
  static cppu::NeverDestroyed<QuorviNDState> state;
  return state.value;
}

/// Told by a filter's callbacks: keeps the cache true and raises an event if the interface is watched.
void OnDevice(const IP4& local, DiscoveryEvent event, const DiscoverInfo& info) {
  auto& state = State();
  std::unique_lock lock(state.mutex);
  if (state.isDown) return;
  auto& devices = state.cache.try_emplace(local, kInitialBuckets).first->second;
  event == DiscoveryEvent::DeviceFound ? void(devices.insert(info)) : void(devices.erase(info));
  // No reference to the channel is taken: this may be its own thread, which must not be the last to hold it.
  if (!state.active.contains(local)) return;
  const auto format = state.format;
  auto* const events = state.events;
  lock.unlock();
  events->raise(event, MakeDeviceRecord(info, format, local), [&] {
    const std::lock_guard again(state.mutex);
    return state.active.contains(local);
  });
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
  auto channel = std::make_shared<DiscoverChannel>(DiscoverChannel{host, filter, {}, address});
  host->start(IP4Set{address});  // last: whatever throws before, there is no thread to wait for
  return channel;
}

void PurgeExpired(QuorviNDState& state) {
  std::erase_if(state.registry, [](const auto& entry) { return entry.second.expired(); });
}

/// Caller holds the state's mutex. Throws QuorviNDException.
std::shared_ptr<DiscoverChannel> GetOrCreateDiscoverChannel(QuorviNDState& state, const IP4& address) {
  const auto known = state.registry.find(address);
  if (known != state.registry.end()) {
    if (auto channel = known->second.lock()) return channel;
  }
  PurgeExpired(state);
  auto& entry =
      state.registry[address];  // first: once the channel runs, nothing may throw that releases it here
  auto channel = MakeChannel(address);
  entry = channel;
  return channel;
}

std::vector<SearchTask> StartSearches(const ChannelList& channels, milliseconds timeout, bool force,
                                      const std::string& serialNumber) {
  const auto freshnessLimit = std::chrono::steady_clock::now() - kFreshFor;
  std::vector<SearchTask> searches;
  for (const auto& channel : channels) {
    // The time of the last search is never set, so that every call searches: a list that is up to 3 s old
    // would miss the device that was just switched on.
    if (!force && channel->lastSearch >= freshnessLimit) continue;
    searches.emplace_back(*channel->filter, timeout, serialNumber);
  }
  return searches;
}

/// Searches on the channels of all addresses at once; `channels` gets them, and has to be released with no
/// lock held. Returns a result code.
uint32_t DiscoverDevices(QuorviNDState& state, const IP4Set& addresses, milliseconds timeout, bool force,
                         ChannelList& channels, const std::string& serialNumber) {
  if (addresses.empty()) return QV_IO_ERROR_INVALID_ARGUMENT;
  channels.reserve(addresses.size());  // so that no channel is released under the lock for want of memory
  std::unique_lock lock(state.mutex);
  try {
    for (const auto& address : addresses) channels.push_back(GetOrCreateDiscoverChannel(state, address));
  } catch (const QuorviNDException& failure) {
    LogWarning("Interface not usable", failure.what());
    return QV_IO_ERROR_INVALID_ARGUMENT;
  }
  PurgeExpired(state);
  lock.unlock();
  auto searches = StartSearches(channels, timeout, force, serialNumber);
  bool succeeded = true;
  for (auto& search : searches) succeeded = search.succeeds() && succeeded;
  return succeeded ? QV_IO_OK : QV_IO_ERROR_QUERY_FAILED;
}

std::optional<Endpoint> LookUp(QuorviNDState& state, const std::string& serialNumber) {
  const std::lock_guard lock(state.mutex);
  for (const auto& [address, devices] : state.cache) {
    for (const auto& info : devices) {
      if (info.SerialNumber == serialNumber) return Endpoint{IP4ToString(info.Address), info.Port};
    }
  }
  return {};
}

/// Releases what was used while an event was delivered. Not for a thread that delivers one.
void ReleaseDeferred(QuorviNDState& state) {
  ChannelList released;
  const std::lock_guard lock(state.mutex);
  released.swap(state.deferred);
}

bool IsDeliveringEvent(QuorviNDState& state) {
  const std::lock_guard lock(state.mutex);
  return state.events != nullptr && state.events->isDelivering();
}

/// What has been heard over one local address.
struct Heard {
  IP4 local;
  std::vector<DiscoverInfo> devices;
};

std::vector<Heard> HeardBy(const ChannelList& channels) {
  std::vector<Heard> heard;
  for (const auto& channel : channels) heard.push_back({channel->address, channel->filter->devices()});
  return heard;
}

/// What the channels that there are have heard, without a search. For a thread that delivers an event: the
/// channels are released by a later caller, since that would wait.
std::vector<Heard> HeardSoFar(QuorviNDState& state, const IP4Set& addresses) {
  std::vector<Heard> heard;
  const std::lock_guard lock(state.mutex);
  auto& deferred = state.deferred;
  deferred.reserve(deferred.size() + addresses.size());
  for (const auto& address : addresses) {
    const auto known = state.registry.find(address);
    if (known == state.registry.end()) continue;
    const auto channel = known->second.lock();  // not the last one: the list has it
    if (!channel) continue;
    if (std::ranges::find(deferred, channel) == deferred.end()) deferred.push_back(channel);
    heard.push_back({address, channel->filter->devices()});
  }
  return heard;
}

/// Searches, and gives what has been heard then and before.
std::vector<Heard> Search(QuorviNDState& state, const IP4Set& addresses, milliseconds timeout, bool force) {
  ReleaseDeferred(state);
  ChannelList channels;
  DiscoverDevices(state, addresses, timeout, force, channels, {});  // whatever it did, known devices count
  return HeardBy(channels);
}

/// Runs an action whose failing interfaces are the caller's mistake.
template <class Action>
decltype(auto) WithInterfaces(Action action) {
  try {
    return action();
  } catch (const QuorviNDException& failure) {
    LogWarning("Interface not usable", failure.what());
    throw Failure(QV_IO_ERROR_INVALID_ARGUMENT);
  }
}

/// Caller holds the state's mutex, under which `released` keeps every channel alive, whatever throws.
void Watch(QuorviNDState& state, const IP4Set& addresses, ReleasedChannels& released) {
  released.reserve(released.size() + state.active.size() + addresses.size());
  std::erase_if(state.active, [&](auto& entry) {
    if (addresses.contains(entry.first)) return false;
    released.push_back(std::move(entry.second));
    return true;
  });
  for (const auto& address : addresses) {
    auto channel = GetOrCreateDiscoverChannel(state, address);
    released.push_back(channel);
    state.active[address] = std::move(channel);
  }
}

}  // namespace

std::optional<Endpoint> FindDevice(const std::string& serialNumber, std::span<const std::string> ifaces,
                                   milliseconds searchTime) {
  auto& state = State();
  ReleaseDeferred(state);
  if (auto known = LookUp(state, serialNumber)) return known;
  const auto addresses = WithInterfaces([&] { return ReadInterfaces(ifaces); });
  if (addresses.empty()) return {};
  ChannelList channels;
  DiscoverDevices(state, addresses, searchTime, true, channels, serialNumber);
  return LookUp(state, serialNumber);
}

void AppendNetworkDevices(const qvio::DeviceListOptions& options, qvio::RecordList& records) {
  auto& state = State();
  const auto addresses = WithInterfaces([&] { return ReadInterfaces(options.ifaces); });
  const auto format = qvio::ReadNetworkLocatorFormat(options.locatorFormatNetwork);
  const auto heard =
      IsDeliveringEvent(state)
          ? HeardSoFar(state, addresses)
          : Search(state, addresses, milliseconds(options.discoveryTimeout), options.forceRescan);
  for (const auto& [local, devices] : heard) {
    for (const auto& info : devices) {
      if (IsAskedFor(info, options)) records.push_back(MakeDeviceRecord(info, format, local));
    }
  }
}

void AppendNetworkInterfaces(qvio::RecordList& records) {
  for (const auto& interface : ListInterfaces()) {
    records.push_back({{"iface-type", "network"},
                       {"network-host", IP4ToString(interface.address)},
                       {"network-subnet-mask", IP4ToString(interface.subnetMask)},
                       {"name", interface.name}});
  }
}

void AdoptGlobalOptions(const qvio::GlobalOptions& options, DiscoveryEvents& events,
                        ReleasedChannels& released) {
  auto& state = State();
  const std::lock_guard lock(state.mutex);
  state.events = &events;
  released.reserve(state.deferred.size());
  for (auto& channel : std::exchange(state.deferred, {})) released.push_back(std::move(channel));
  if (!options.locatorFormatNetwork.empty())
    state.format = qvio::ReadNetworkLocatorFormat(options.locatorFormatNetwork);
  const auto addresses = WithInterfaces([&] { return ReadWatchedInterfaces(options.discoveryIfaces); });
  WithInterfaces([&] { Watch(state, addresses.value_or(IP4Set{}), released); });
  PurgeExpired(state);
}

std::shared_ptr<void> TakeDiscoveryDown() {
  auto& state = State();
  const auto contents = std::make_shared<QuorviNDState>();
  {
    const std::lock_guard lock(state.mutex);
    state.isDown = true;
    contents->registry = std::exchange(state.registry, {});
    contents->active = std::exchange(state.active, {});
    contents->cache = std::exchange(state.cache, {});
    contents->deferred = std::exchange(state.deferred, {});
  }
  for (const auto& [address, channel] : contents->active) channel->host->retire();
  for (const auto& channel : contents->deferred) channel->host->retire();
  return contents;
}

}  // namespace quorvind
