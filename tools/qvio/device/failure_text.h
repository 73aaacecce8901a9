#pragma once

#include <sys/stat.h>

#include <string>

#include "device/channel_options.h"
#include "terminal/failure.h"

namespace qvio_tool {

/// Why the last failed call to the library on this thread has failed.
std::string FailureText();

/// Whom a file belongs to that the user may not use, and what to do about it.
std::string ForbiddenHint(const std::string& path, const struct stat& file);

/// The name of the group that a file belongs to, and whether that group may read and write it.
std::string GroupOf(const struct stat& file);
bool GroupMayUse(const struct stat& file);

inline constexpr const char* kLocatorForms =
    "a locator is serial:PATH, network:HOST:PORT, network:sn:SERIAL, usb:sn:SERIAL, usb:id:NUMBER or "
    "usb:ix:INDEX";

/// The failure to open a channel with these options: the reason, and what to do next. A wrong argument is
/// WrongUsage.
CommandFailure OpenFailure(uint32_t result, const ChannelOptions& options);

}  // namespace qvio_tool
