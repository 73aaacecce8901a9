#include "nd/discovery.h"

#include <algorithm>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "nd/connection.h"
#include "nd/device_cache.h"
#include "nd/device_filter.h"
#include "nd/device_record.h"
#include "nd/errors.h"
#include "nd/host.h"
#include "nd/interface_texts.h"
#include "nd/local_addresses.h"
#include "nd/log.h"
#include "nd/search_task.h"
#include "util/failure.h"
#include "util/lock_within.h"
#include "util/never_destroyed.h"
#include "util/scope_exit.h"

namespace quorvind {
namespace {

using qvio::Failure;
using qvio::NetworkLocatorFormat;
using std::chrono::milliseconds;
using Time = std::chrono::steady_clock::time_point;

constexpr std::chrono::seconds kFreshFor{3};
constexpr std::chrono::seconds kTrustedFor{10};  // a record of an interface that nobody listens on
constexpr std::chrono::hours kRememberedFor{1};  // the same, before it is forgotten

/// What listens on one local address. Destroying it never waits: its thread ends by itself.
struct DiscoverChannel {
  std::shared_ptr<Host> host;
  std::shared_ptr<DeviceFilter> filter;
  Time lastSearch{};
  IP4 address{};
};
using ChannelList = std::vector<std::shared_ptr<DiscoverChannel>>;

template <class Value>
using ByAddress = std::unordered_map<IP4, Value, IP4AddressHash>;

/// A serial number that a search waits for.
struct Awaited {
  const std::string& serialNumber;
  bool heard = false;
};

struct QuorviNDState {
  std::mutex mutex;  ///< guards all that follows
  ByAddress<std::weak_ptr<DiscoverChannel>> registry{kInitialBuckets};
  ByAddress<std::shared_ptr<DiscoverChannel>> active{kInitialBuckets};  ///< of the interfaces to watch
  DeviceCache cache;
  NetworkLocatorFormat format = NetworkLocatorFormat::SerialNumber;
  DiscoveryEvents* events = nullptr;  ///< set before any channel is active
  std::list<Awaited> awaited;
  std::condition_variable heard;  ///< an awaited serial number is in the cache
};

QuorviNDState& State() {
  static cppu::NeverDestroyed<QuorviNDState> state;
  return state.value;
}

/// Whether the calling thread is delivering an event: then it must not wait for a discovery thread, which may
/// be waiting for this delivery to end.
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

/// Caller holds the state's mutex.
void PurgeExpired(QuorviNDState& state) {
  std::erase_if(state.registry, [](const auto& entry) { return entry.second.expired(); });
  state.cache.expire(std::chrono::steady_clock::now() - kRememberedFor,
                     [&](const IP4& local) { return !state.registry.contains(local); });
}

/// Caller holds the state's mutex. Throws QuorviNDException.
std::shared_ptr<DiscoverChannel> GetOrCreateDiscoverChannel(QuorviNDState& state, const IP4& address) {
  auto& entry = state.registry[address];
  if (auto channel = entry.lock()) return channel;
  auto channel = MakeChannel(address);
  entry = channel;
  return channel;
}

/// Those of the addresses that are local, or were when their channel was made: an interface that is gone for
/// a while stays watched.
IP4Set Searchable(QuorviNDState& state, std::span<const IP4> addresses) {
  auto searchable = LocalOnes(addresses);
  const std::lock_guard lock(state.mutex);
  for (const auto& address : addresses) {
    const auto known = state.registry.find(address);
    if (known != state.registry.end() && !known->second.expired()) searchable.insert(address);
  }
  return searchable;
}

/// The channels of the addresses that can be used; a warning is logged for each other one. Caller holds the
/// state's mutex.
/// @param problem  set when there is such an address
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

std::vector<SearchTask> StartSearches(const ChannelList& channels, milliseconds timeout, bool force,
                                      const std::string& serialNumber) {
  const auto freshnessLimit = std::chrono::steady_clock::now() - kFreshFor;
  std::vector<SearchTask> searches;
  for (const auto& channel : channels) {
    // The time of the last search is never set, so that every call searches: a list that is up to 3 s old
    // would miss the device that was just switched on.
    if (!force && channel->lastSearch >= freshnessLimit) continue;
    searches.emplace_back(channel->filter, timeout, serialNumber);
  }
  return searches;
}

/// Registers a serial number as awaited while it lives.
class Awaiting {
 public:
  Awaiting(QuorviNDState& state, const std::string& serialNumber) : state_(state) {
    const std::lock_guard lock(state_.mutex);
    position_ = state_.awaited.insert(state_.awaited.end(), {serialNumber});
  }
  Awaiting(const Awaiting&) = delete;
  Awaiting& operator=(const Awaiting&) = delete;
  ~Awaiting() {
    const std::lock_guard lock(state_.mutex);
    state_.awaited.erase(position_);
  }

  /// Whether the device was heard before the deadline.
  [[nodiscard]] bool waitUntil(Time deadline) {
    std::unique_lock lock(state_.mutex);
    return state_.heard.wait_until(lock, deadline, [this] { return position_->heard; });
  }

 private:
  QuorviNDState& state_;
  std::list<Awaited>::iterator position_;
};

/// Searches on the channels of all addresses at once, and gets these channels. With a serial number it ends
/// as soon as that device is in the cache. Returns a result code.
uint32_t DiscoverDevices(QuorviNDState& state, const IP4Set& addresses, milliseconds timeout, bool force,
                         ChannelList& channels, const std::string& serialNumber) {
  if (addresses.empty()) return QV_IO_ERROR_INVALID_ARGUMENT;
  {
    const std::lock_guard lock(state.mutex);
    std::string ignored;  // it is logged, and the other addresses count
    channels = UsableChannels(state, addresses, ignored);
    PurgeExpired(state);
  }
  if (channels.empty()) return QV_IO_ERROR_INVALID_ARGUMENT;
  Awaiting awaiting(state, serialNumber);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  auto searches = StartSearches(channels, timeout, force, serialNumber);
  if (!serialNumber.empty() && awaiting.waitUntil(deadline)) {
    for (auto& search : searches) search.cancel();
  }
  bool succeeded = true;
  for (auto& search : searches) succeeded = search.join() && succeeded;
  return succeeded ? QV_IO_OK : QV_IO_ERROR_QUERY_FAILED;
}

/// What the cache knows of a serial number.
struct Lookup {
  std::optional<Endpoint> endpoint;
  bool trusted = false;  ///< needs no search even if the caller names interfaces
};

Lookup LookUp(QuorviNDState& state, const std::string& serialNumber) {
  const std::lock_guard lock(state.mutex);
  const auto found = state.cache.latest(serialNumber);
  if (!found) return {};
  const bool recent = std::chrono::steady_clock::now() - found->info.LastSeen <= kTrustedFor;
  return {Endpoint{IP4ToString(found->info.Address), found->info.Port},
          recent || state.active.contains(found->local)};
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

/// What the existing channels have heard, without a search.
std::vector<Heard> HeardSoFar(QuorviNDState& state, std::span<const IP4> addresses) {
  ChannelList channels;
  {
    const std::lock_guard lock(state.mutex);
    for (const auto& address : addresses) {
      const auto known = state.registry.find(address);
      if (known == state.registry.end()) continue;
      if (auto channel = known->second.lock()) channels.push_back(std::move(channel));
    }
  }
  return HeardBy(channels);
}

/// Searches, and gives what has been heard then and before.
std::vector<Heard> Search(QuorviNDState& state, std::span<const IP4> addresses, milliseconds timeout,
                          bool force) {
  const cppu::ScopeExit joined(
      [] { cppu::Threads::all().joinReleased(); });  // those of channels made for this
  ChannelList channels;
  DiscoverDevices(state, Searchable(state, addresses), timeout, force, channels,
                  {});  // whatever it did, known devices count
  return HeardBy(channels);
}

/// Runs an action whose failing interfaces are the caller's mistake.
template <class Action>
decltype(auto) WithInterfaces(Action action) {
  try {
    return action();
  } catch (const QuorviNDException& failure) {
    LogWarning("Interface not usable", failure.what());
    qvio::Fail(QV_IO_ERROR_INVALID_ARGUMENT, "%", {failure.what()});
  }
}

std::string Listed(std::span<const IP4> addresses) {
  std::string list;
  for (const auto& address : addresses) list += (list.empty() ? "" : ", ") + IP4ToString(address);
  return list;
}

/// Which of the addresses is not local; empty when all are.
std::string NotLocal(std::span<const IP4> addresses, const IP4Set& local) {
  const auto foreign =
      std::ranges::find_if(addresses, [&](const IP4& address) { return !local.contains(address); });
  return foreign == addresses.end() ? "" : "not a local address: " + IP4ToString(*foreign);
}

}  // namespace

Endpoint FindDevice(const std::string& serialNumber, std::span<const std::string> ifaces,
                    milliseconds searchTime) {
  auto& state = State();
  const auto known = LookUp(state, serialNumber);
  if (known.endpoint && (known.trusted || ifaces.empty())) return *known.endpoint;
  const auto addresses = WithInterfaces([&] { return ReadInterfaces(ifaces); });
  if (addresses.empty() && known.endpoint) return *known.endpoint;
  qvio::Require(!addresses.empty(), QV_IO_ERROR_DEVICE_NOT_FOUND,
                "no device with serial number % is known, and no interface to search", {serialNumber});
  const cppu::ScopeExit joined(
      [] { cppu::Threads::all().joinReleased(); });  // those of channels made for this
  ChannelList channels;
  const auto searched = Searchable(state, addresses);
  DiscoverDevices(state, searched, searchTime, true, channels, serialNumber);
  const auto found = LookUp(state, serialNumber);
  if (found.trusted) return *found.endpoint;  // an old record is of a device that did not answer
  qvio::Require(!searched.empty(), QV_IO_ERROR_DEVICE_NOT_FOUND, "not a local address: %",
                {Listed(addresses)});
  qvio::Fail(QV_IO_ERROR_DEVICE_NOT_FOUND, "no device with serial number % answered on %",
             {serialNumber, Listed(addresses)});
}

void AppendNetworkDevices(const qvio::DeviceListOptions& options, qvio::RecordList& records) {
  auto& state = State();
  const auto addresses = WithInterfaces([&] { return ReadInterfaces(options.ifaces); });
  const auto format = qvio::ReadNetworkLocatorFormat(options.locatorFormatNetwork);
  const auto heard =
      isDelivering ? HeardSoFar(state, addresses)
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

Settings ReadSettings(const qvio::GlobalOptions& options) {
  Settings settings;
  if (!options.locatorFormatNetwork.empty())
    settings.format = qvio::ReadNetworkLocatorFormat(options.locatorFormatNetwork);
  try {
    const auto addresses = WithInterfaces([&] { return ReadWatchedInterfaces(options.discoveryIfaces); });
    settings.watched = Searchable(State(), addresses);
    settings.problem = NotLocal(addresses, *settings.watched);
  } catch (const Failure& failure) {
    settings.watched.reset();
    settings.problem = failure.what();  // thrown by AdoptSettings, after it has adopted the format
  }
  return settings;
}

void AdoptSettings(const Settings& settings, DiscoveryEvents& events) {
  auto& state = State();
  const std::lock_guard lock(state.mutex);
  state.events = &events;
  state.format = settings.format.value_or(state.format);
  if (!settings.watched) qvio::Fail(QV_IO_ERROR_INVALID_ARGUMENT, "%", {settings.problem});
  ByAddress<std::shared_ptr<DiscoverChannel>> active{kInitialBuckets};
  std::string problem;
  for (auto& channel : UsableChannels(state, *settings.watched, problem)) {
    const auto address = channel->address;
    active[address] = std::move(channel);
  }
  state.active.swap(active);
  PurgeExpired(state);
  if (!settings.problem.empty()) problem = settings.problem;
  qvio::Require(problem.empty(), QV_IO_ERROR_INVALID_ARGUMENT, "%", {problem});
}

void ForgetDiscovery(Time deadline) {
  auto& state = State();
  const auto lock = cppu::LockWithin(state.mutex, deadline);
  if (!lock) return;
  std::exchange(state.active, {});  // with their tables
  std::exchange(state.registry, {});
  std::exchange(state.cache, DeviceCache(0));
}

void RenewDiscovery() {
  ::new (&State()) QuorviNDState;
  isDelivering = false;  // the event, if there is one, is the parent's
}

}  // namespace quorvind
