#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "nd/discovery_events.h"
#include "options/locator.h"
#include "options/option_sets.h"
#include "options/record_list.h"
#include "util/ip4.h"

/// The functions of discovery for the layers above. One state for the whole process. Any thread, holding no
/// lock except the global mutex where stated.
namespace quorvind {

/// Where a network device takes TCP connections.
struct Endpoint {
  std::string host;  ///< dotted address
  uint16_t port = 0;
};

/// The device with this serial number: the one heard last among those that discovery knows. Unless its
/// interface is watched, the call names no interface, or it was heard within the last 10 s, the interfaces
/// are searched first, until the device answers or the time has passed. Throws Failure:
/// QV_IO_ERROR_DEVICE_NOT_FOUND when there is no such device or no interface to search,
/// QV_IO_ERROR_INVALID_ARGUMENT for an invalid interface text.
Endpoint FindDevice(const std::string& serialNumber, std::span<const std::string> ifaces,
                    std::chrono::milliseconds searchTime);

/// Searches the interfaces of the options and appends a record for each network device that is known then and
/// passes the filters, whatever the search did. On a thread that is delivering an event it does not search,
/// since it would wait for itself: it gives what is known.
/// Throws Failure or OptionsError for invalid interface texts and locator formats.
void AppendNetworkDevices(const qvio::DeviceListOptions& options, qvio::RecordList& records);

/// Appends a record for each local interface that can be searched.
void AppendNetworkInterfaces(qvio::RecordList& records);

/// What the global options say about discovery.
struct Settings {
  std::optional<qvio::NetworkLocatorFormat> format;  ///< of the locators in events; none: as it is
  std::optional<IP4Set> watched;                     ///< local addresses; none: a text was invalid
  std::string problem;                               ///< the invalid text or an address that is not local
};

/// Reads the settings. Takes no lock, because reading them can be slow. Throws OptionsError for an unknown
/// format.
Settings ReadSettings(const qvio::GlobalOptions& options);

/// Adopts the interfaces to watch and the locator format of events. Caller holds the global mutex; on return
/// no event is delivered for an interface that is no longer watched.
/// @param events  hears of the devices on these interfaces; must live as long as the process
/// Throws Failure with QV_IO_ERROR_INVALID_ARGUMENT when a text was invalid or not all interfaces can be
/// watched. The format is adopted all the same, and so are the other interfaces unless a text was invalid.
void AdoptSettings(const Settings& settings, DiscoveryEvents& events);

/// For the end of the library, when no thread of discovery is left: forgets everything. Gives up at the
/// deadline if a call of the application holds the state.
void ForgetDiscovery(std::chrono::steady_clock::time_point deadline);

/// For a forked child: a new state; the parent's is left as it is.
void RenewDiscovery();

}  // namespace quorvind
