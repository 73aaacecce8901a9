#pragma once

#include <filesystem>
#include <vector>

#include "driver/chip.h"

namespace qvusb {

/// The channels of all chips that are plugged in, in the order of their places on the buses. Needs no rights
/// and disturbs no chip.
/// @param root  of all paths; another one than "/" in tests
std::vector<Channel> ListChannels(const std::filesystem::path& root);

}  // namespace qvusb
