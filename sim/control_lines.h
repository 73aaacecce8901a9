#pragma once

#include <string>
#include <string_view>

#include "sim/controller_group.h"

namespace qvsim {

/// What each line on standard input does, for the help.
inline constexpr const char* kControlHelp =
    "Lines on standard input change a running controller:\n"
    "  available SERIAL on|off   free for a connection, or not\n"
    "  leave SERIAL              says goodbye and is gone\n"
    "  vanish SERIAL             is gone without a word\n"
    "  return SERIAL             is there again\n"
    "  port SERIAL               moves to another TCP port\n";

/// Carries one line out; returns what is wrong with it, or nothing.
std::string Control(ControllerGroup& group, std::string_view line);

}  // namespace qvsim
