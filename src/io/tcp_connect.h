#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "util/unique_fd.h"

namespace qvio {

/// Connects to the first address of the host that takes the connection. A connect that is still under way is
/// taken as done when the socket turns writable, without a look at its error: a refused connection can pass
/// here and shows when it is used. A connection to itself counts as refused.
/// @param timeout  for each address; resolving the name takes its own time
/// @return the socket, non-blocking, with the system's default options. Throws Failure:
///         QV_IO_ERROR_DEVICE_NOT_FOUND, no such host or no address connects; QV_IO_ERROR_DRIVER_FAILURE, the
///         resolver failed otherwise.
cppu::UniqueFd ConnectTcp(const std::string& host, uint16_t port, std::chrono::milliseconds timeout);

}  // namespace qvio
