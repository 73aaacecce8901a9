#include "nd/discovery.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "nd/connection.h"
#include "nd/device_record.h"
#include "nd/device_search.h"
#include "nd/errors.h"
#include "nd/interface_texts.h"
#include "nd/log.h"
#include "util/failure.h"
#include "util/lock_within.h"
#include "util/scope_exit.h"

namespace quorvind {
namespace {

using qvio::Failure;
using std::chrono::milliseconds;
using Time = std::chrono::steady_clock::time_point;

constexpr std::chrono::seconds kTrustedFor{10};  // a record of an interface that nobody listens on

/// The cached record of a serial number.
struct CachedDevice {
  std::optional<Endpoint> endpoint;
  bool trusted = false;  ///< needs no search even if the caller names interfaces
};

CachedDevice FindInCache(QuorviNDState& state, const std::string& serialNumber) {
  const std::lock_guard lock(state.mutex);
  const auto found = state.cache.latest(serialNumber);
  if (!found) return {};
  const bool recent = std::chrono::steady_clock::now() - found->info.LastSeen <= kTrustedFor;
  return {Endpoint{IP4ToString(found->info.Address), found->info.Port},
          recent || state.active.contains(found->local)};
}

/// The devices that were heard over one local address.
struct Heard {
  IP4 local;
  std::vector<DiscoverInfo> devices;
};

std::vector<Heard> HeardBy(const ChannelList& channels) {
  std::vector<Heard> heard;
  for (const auto& channel : channels) heard.push_back({channel->address, channel->filter->devices()});
  return heard;
}

/// The devices that the existing channels have heard, without a search.
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

/// Searches, and gives the devices that were heard then or before.
std::vector<Heard> HeardAfterSearch(QuorviNDState& state, std::span<const IP4> addresses,
                                    milliseconds timeout, bool force) {
  const cppu::ScopeExit joined(
      [] { cppu::Threads::all().joinReleased(); });  // those of channels made for this
  return HeardBy(DiscoverDevices(state, Searchable(state, addresses), timeout, force, {}));
}

/// Runs an action in which an unusable interface is the caller's mistake.
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
  // In the usual case, a watched interface, this takes no time and sends nothing.
  const auto known = FindInCache(state, serialNumber);
  if (known.endpoint && (known.trusted || ifaces.empty())) return *known.endpoint;
  const auto addresses = WithInterfaces([&] { return ReadInterfaces(ifaces); });
  if (addresses.empty() && known.endpoint) return *known.endpoint;
  qvio::Require(!addresses.empty(), QV_IO_ERROR_DEVICE_NOT_FOUND,
                "no device with serial number % is known, and no interface to search", {serialNumber});
  const cppu::ScopeExit joined(
      [] { cppu::Threads::all().joinReleased(); });  // those of channels made for this
  const auto searched = Searchable(state, addresses);
  const auto channels = DiscoverDevices(state, searched, searchTime, true, serialNumber);
  const auto found = FindInCache(state, serialNumber);
  if (found.trusted) return *found.endpoint;  // a record that is still old: the device did not answer
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
      IsDelivering()
          ? HeardSoFar(state, addresses)
          : HeardAfterSearch(state, addresses, milliseconds(options.discoveryTimeout), options.forceRescan);
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
  // Even if an interface is refused below: the events of those that are watched already must go on.
  state.events = &events;
  state.format = settings.format.value_or(state.format);
  if (!settings.watched) qvio::Fail(QV_IO_ERROR_INVALID_ARGUMENT, "%", {settings.problem});
  ByAddress<std::shared_ptr<DiscoverChannel>> active{kInitialBuckets};
  std::string problem;
  for (auto& channel : UsableChannels(state, *settings.watched, problem)) {
    const auto address = channel->address;
    active[address] = std::move(channel);
  }
  // The former channels go with `active`, after the new ones exist: those that stay are not restarted.
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

void RenewDiscovery() { RenewState(); }

}  // namespace quorvind
