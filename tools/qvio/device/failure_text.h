#pragma once

#include <string>

#include "device/channel_options.h"
#include "terminal/failure.h"

namespace qvio_tool {

/// Why the last failed call to the library on this thread has failed.
std::string FailureText();

inline constexpr const char* kLocatorForms =
    "a locator is serial:PATH, network:HOST:PORT, network:sn:SERIAL, usb:sn:SERIAL, usb:id:NUMBER or "
    "usb:ix:INDEX";

/// The failure to open a channel with these options: the reason, and what to do next. A wrong argument is
/// WrongUsage.
CommandFailure OpenFailure(uint32_t result, const ChannelOptions& options);

}  // namespace qvio_tool
