#pragma once

#include <string>

#include "nd/connection.h"

namespace qvio_tool {

/// Sends a datagram to discovery's multicast group, on a port of its own and for this machine alone, and
/// waits a moment for it. Returns why it does not come back; empty: it does.
std::string MulticastProblem(const quorvind::Interface& interface);

}  // namespace qvio_tool
