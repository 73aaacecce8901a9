#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>

#include "terminal/failure.h"

namespace qvio_tool {

/// What a command does once its arguments are read; returns the exit status.
using Run = std::function<int()>;

/// Sets what a command does. Returns its options, which live as long as the command.
template <class Options>
Options& SetAction(CLI::App& command, Run& run, int (*action)(const Options&)) {
  const auto options = std::make_shared<Options>();
  command.callback([=, &run] { run = [=] { return action(*options); }; });
  return *options;
}

/// Each adds one command with its options, help and example, and stores in `run` what to do if it is given.
void AddCompleteCommand(CLI::App& app, Run& run);
void AddConfigCommand(CLI::App& app, Run& run);
void AddDoctorCommand(CLI::App& app, Run& run);
void AddIfacesCommand(CLI::App& app, Run& run);
void AddInfoCommand(CLI::App& app, Run& run);
void AddListCommand(CLI::App& app, Run& run);
void AddLogCommand(CLI::App& app, Run& run);
void AddManualCommand(CLI::App& app, Run& run);
void AddOpenCommand(CLI::App& app, Run& run);
void AddPingCommand(CLI::App& app, Run& run);
void AddSendCommand(CLI::App& app, Run& run);
void AddVersionCommand(CLI::App& app, Run& run);
void AddWatchCommand(CLI::App& app, Run& run);

}  // namespace qvio_tool
