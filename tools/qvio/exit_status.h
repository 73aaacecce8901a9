#pragma once

namespace qvio_tool {

/// Exit statuses of every command.
enum ExitStatus { Done = 0, Refused = 1, WrongUsage = 2, TimedOut = 124 };

}  // namespace qvio_tool
