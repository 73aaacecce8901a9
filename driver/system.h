#pragma once

#include <memory>
#include <vector>

#include "driver/chip.h"
#include "driver/link.h"

namespace qvusb {

// The machine: tests have another one.

/// The channels of the chips that are plugged in.
std::vector<Channel> PluggedChannels();

/// Throws std::system_error: the user may not use the chip, it is gone, or some program uses it.
std::unique_ptr<Link> OpenLink(const Channel& channel);

}  // namespace qvusb
