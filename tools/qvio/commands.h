#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace qvio_tool {

/// Exit statuses of every command. A CommandFailure gives Refused.
enum ExitStatus { Done = 0, Refused = 1, WrongUsage = 2, TimedOut = 124 };

/// What a command does once its arguments are read; returns the exit status.
using Run = std::function<int()>;

/// Each adds one command with its options, help and example, and stores in `run` what to do if it is given.
void AddOpenCommand(CLI::App& app, Run& run);
void AddSendCommand(CLI::App& app, Run& run);
void AddVersionCommand(CLI::App& app, Run& run);

}  // namespace qvio_tool
