#pragma once

#include <string>

#include "nd/connection.h"

namespace qvio_tool {

/// Sends a datagram to discovery's multicast group on the interface and waits a moment for it. The datagram
/// never leaves this machine, and goes to a port of its own first. Returns why it does not come back; empty:
/// it does.
std::string MulticastProblem(const quorvind::Interface& interface);

}  // namespace qvio_tool
