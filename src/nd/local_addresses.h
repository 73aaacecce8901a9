#pragma once

#include <optional>
#include <span>

#include "util/ip4.h"

namespace quorvind {

/// What the system knows about one address of this machine.
struct LocalAddress {
  unsigned interfaceIndex = 0;  ///< 0: not known
  IP4 broadcast{};              ///< 0.0.0.0: none, or none while the interface is down
  bool isUp = false;            ///< the interface
};

/// None for an address that is not listed. Every address of the loopback network counts as listed. Throws
/// NetworkException.
std::optional<LocalAddress> FindLocalAddress(const IP4& address);

/// Those of the addresses that belong to this machine, listed or not. A warning is logged for each other one.
IP4Set LocalOnes(std::span<const IP4> addresses);

}  // namespace quorvind
