#pragma once

#include <vector>

#include "util/ip4.h"

namespace quorvind {

/// Those of the addresses that belong to this machine, in the set's order. A warning is logged for each other
/// one.
std::vector<IP4> LocalOnes(const IP4Set& addresses);

}  // namespace quorvind
