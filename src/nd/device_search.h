#pragma once

#include <chrono>
#include <string>

#include "nd/discovery_state.h"

namespace quorvind {

/// Searches on the channels of all addresses at once, and gives these channels: those that it made live as
/// long as they are held. What fails is logged, since the devices that are known count whatever a search did.
/// @param serialNumber  the device to search for: the search ends as soon as it is in the cache. Empty: all
///                      devices, for the whole time
ChannelList DiscoverDevices(QuorviNDState& state, const IP4Set& addresses, std::chrono::milliseconds timeout,
                            bool force, const std::string& serialNumber);

}  // namespace quorvind
