#pragma once

#include <string>
#include <string_view>

#include "sim/controller_group.h"

namespace qvsim {

/// The help for lines on standard input.
inline constexpr const char* kControlHelp =
    "Lines on standard input change a running controller:\n"
    "  available SERIAL on|off   free for a connection, or not\n"
    "  leave SERIAL              says goodbye and leaves\n"
    "  vanish SERIAL             leaves without a goodbye\n"
    "  return SERIAL             is there again\n"
    "  port SERIAL               moves to another TCP port\n";

/// Executes one line; returns the problem with it, or nothing.
std::string Control(ControllerGroup& group, std::string_view line);

}  // namespace qvsim
