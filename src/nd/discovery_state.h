#pragma once

#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "nd/device_cache.h"
#include "nd/device_filter.h"
#include "nd/discovery_events.h"
#include "nd/host.h"
#include "options/locator.h"
#include "util/ip4.h"

namespace quorvind {

/// The listener on one local address. Destroying it never waits: its thread ends by itself.
struct DiscoverChannel {
  std::shared_ptr<Host> host;
  std::shared_ptr<DeviceFilter> filter;
  std::chrono::steady_clock::time_point lastSearch{};
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
  qvio::NetworkLocatorFormat format = qvio::NetworkLocatorFormat::SerialNumber;
  DiscoveryEvents* events = nullptr;  ///< set before any channel is active
  std::list<Awaited> awaited;
  std::condition_variable heard;  ///< an awaited serial number is in the cache
};

QuorviNDState& State();

/// For a forked child: a new state; the parent's is left as it is.
void RenewState();

/// Whether the calling thread is delivering an event: then it must not wait for a discovery thread, which may
/// be waiting for this delivery to end.
bool IsDelivering() noexcept;

/// Forgets channels that nobody uses any more, and old records of interfaces without a channel. Caller holds
/// the state's mutex.
void PurgeExpired(QuorviNDState& state);

/// Those of the addresses that are local, or were when their channel was made: an interface that is gone for
/// a while stays watched. Takes the state's mutex.
IP4Set Searchable(QuorviNDState& state, std::span<const IP4> addresses);

/// The channels of the addresses that can be used, made where there is none; a warning is logged for each
/// other one. Caller holds the state's mutex.
/// @param problem  set when there is such an address
ChannelList UsableChannels(QuorviNDState& state, const IP4Set& addresses, std::string& problem);

}  // namespace quorvind
