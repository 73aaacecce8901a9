#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "nd/discovery_events.h"
#include "options/option_sets.h"
#include "options/record_list.h"

/// All that the layers above may call of discovery. Its state is one for the process. Any thread, with no
/// lock held but the global mutex where it is said.
namespace quorvind {

/// Where a network device takes TCP connections.
struct Endpoint {
  std::string host;  ///< dotted address
  uint16_t port = 0;
};

/// The device with this serial number among those that discovery knows; else the one that a search over the
/// interfaces finds within the time; none when there is no such device or no interface to search.
/// Throws Failure with QV_IO_ERROR_INVALID_ARGUMENT for an invalid interface text.
std::optional<Endpoint> FindDevice(const std::string& serialNumber, std::span<const std::string> ifaces,
                                   std::chrono::milliseconds searchTime);

/// Searches the interfaces of the options and appends a record for each network device that is known then and
/// passes the filters, whatever the search did. On a thread that is delivering an event it does not search,
/// since it would wait for itself: it gives what is known.
/// Throws Failure or OptionsError for invalid interface texts and locator formats.
void AppendNetworkDevices(const qvio::DeviceListOptions& options, qvio::RecordList& records);

/// Appends a record for each local interface that can be searched.
void AppendNetworkInterfaces(qvio::RecordList& records);

/// Discovery channels that are no longer wanted. Destroying them waits for their threads, so that has to be
/// done with no lock held at all.
using ReleasedChannels = std::vector<std::shared_ptr<void>>;

/// Adopts the interfaces to watch and the locator format of events. Caller holds the global mutex.
/// @param events    hears of the devices on these interfaces; must live as long as the process
/// @param released  gets the channels of the interfaces that are watched no more, also when this throws
/// Throws Failure or OptionsError; the format and a part of the interfaces may be adopted then.
void AdoptGlobalOptions(const qvio::GlobalOptions& options, DiscoveryEvents& events,
                        ReleasedChannels& released);

/// Tells all threads of watched interfaces to end, without waiting: they are among the retired ones. What is
/// returned is in use until they have ended.
std::shared_ptr<void> TakeDiscoveryDown();

}  // namespace quorvind
