#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "options/option_sets.h"
#include "options/record_list.h"

namespace qvio {

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

/// Appends a record for each network device that a search finds and that passes the filters.
/// Throws Failure or OptionsError for invalid interface texts and locator formats.
void AppendNetworkDevices(const DeviceListOptions& options, RecordList& records);

/// Appends a record for each local interface that can be searched.
void AppendNetworkInterfaces(RecordList& records);

/// Adopts the interfaces to watch and the locator format of events. Throws Failure or OptionsError, after
/// which the format or the interfaces may be unchanged.
void AdoptGlobalOptions(const GlobalOptions& options);

}  // namespace qvio
