#pragma once

#include "nd/discover_info.h"
#include "options/locator.h"
#include "options/option_sets.h"
#include "options/record_list.h"

namespace quorvind {

/// The property record of a network device; without a locator if the serial number has a control character.
/// @param local  the address of the interface over which it was heard
qvio::PropertyRecord MakeDeviceRecord(const DiscoverInfo& info, qvio::NetworkLocatorFormat format,
                                      const IP4& local);

/// Whether the device is one of those that the find- options ask for. An empty list asks for all.
bool IsAskedFor(const DiscoverInfo& info, const qvio::DeviceListOptions& options);

}  // namespace quorvind
