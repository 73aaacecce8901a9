#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "exit_status.h"

namespace qvio_tool {

/// What a command does once its arguments are read; returns the exit status.
using Run = std::function<int()>;

/// Each adds one command with its options, help and example, and stores in `run` what to do if it is given.
void AddConfigCommand(CLI::App& app, Run& run);
void AddIfacesCommand(CLI::App& app, Run& run);
void AddInfoCommand(CLI::App& app, Run& run);
void AddListCommand(CLI::App& app, Run& run);
void AddOpenCommand(CLI::App& app, Run& run);
void AddSendCommand(CLI::App& app, Run& run);
void AddVersionCommand(CLI::App& app, Run& run);
void AddWatchCommand(CLI::App& app, Run& run);

}  // namespace qvio_tool
