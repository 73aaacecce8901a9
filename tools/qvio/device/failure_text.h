#pragma once

#include <string>

#include "device/channel_options.h"

namespace qvio_tool {

/// Why the last failed call to the library on this thread has failed.
std::string FailureText();

/// The same after opening a channel with these options, and what to do next.
std::string OpenFailureText(uint32_t result, const ChannelOptions& options);

}  // namespace qvio_tool
