#pragma once

#include <optional>
#include <span>
#include <string>

#include "util/ip4.h"

namespace quorvind {

/// The local addresses that interface texts name: "network:ADDRESS", or "network:all" for every interface
/// that discovery can use. Texts of other kinds are skipped. Throws Failure with QV_IO_ERROR_INVALID_ARGUMENT
/// when an address cannot be read or is 0.0.0.0, NetworkException when the interfaces cannot be listed.
IP4Set ReadInterfaces(std::span<const std::string> texts);

/// The same for the settings, which also know "network:none": none, and nothing behind it is read.
std::optional<IP4Set> ReadWatchedInterfaces(std::span<const std::string> texts);

}  // namespace quorvind
