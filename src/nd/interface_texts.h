#pragma once

#include <span>
#include <string>
#include <vector>

#include "util/ip4.h"

namespace quorvind {

/// The addresses that interface texts name, each once: "network:ADDRESS", or "network:all" for every
/// interface that discovery can use. Texts of other kinds are skipped. Throws Failure with
/// QV_IO_ERROR_INVALID_ARGUMENT when an address cannot be read or is 0.0.0.0, NetworkException when the
/// interfaces cannot be listed.
std::vector<IP4> ReadInterfaces(std::span<const std::string> texts);

/// The same for the settings, which also know "network:none": no address, and nothing after it is read.
std::vector<IP4> ReadWatchedInterfaces(std::span<const std::string> texts);

}  // namespace quorvind
