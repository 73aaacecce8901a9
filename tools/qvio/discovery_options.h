#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "util/ip4.h"

namespace qvio_tool {

/// What to do when a device does not answer, without what the command's own options can change.
inline constexpr const char* kWhatToCheck =
    "check that it is powered and on the same network segment, and that the firewall lets UDP 65110 and "
    "65111 in";

/// What to do when discovery cannot use an address.
inline constexpr const char* kWhichAddresses = "\"qvio ifaces\" shows the addresses of this machine";

/// The arguments of every command that discovers.
struct DiscoveryOptions {
  std::vector<std::string> ifaces;  ///< as given; empty: all
  std::string trace;                ///< what of the discovery log is written; empty: nothing

  void addTo(CLI::App& command);
  void addTraceTo(CLI::App& command);

  /// Switches the log on if it was asked for.
  void startTrace() const;

  /// The local addresses to work over, never none. Throws CommandFailure that names a malformed one.
  [[nodiscard]] quorvind::IP4Set addresses() const;
};

}  // namespace qvio_tool
