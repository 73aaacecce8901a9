#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "nd/packet.h"

namespace qvio_tool {

/// Checks of what a device is to be told, so that no mistake makes it unreachable. A problem is told in
/// words; the empty text: none.

/// Arguments of the command line. They refuse with a parse error.
CLI::Validator AddressText();
CLI::Validator MaskText();          ///< contiguous, from the left
CLI::Validator SerialNumberText();  ///< 1 to 63 bytes
CLI::Validator DeviceInfoText();    ///< printable ASCII, up to 63 bytes

/// Whether a device can live with these addresses. Gateway 0.0.0.0 is none.
std::string ProblemOf(const quorvind::DeviceConfig& config);

}  // namespace qvio_tool
