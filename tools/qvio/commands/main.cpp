// qvio: the command-line tool.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

/// "help COMMAND" is "COMMAND --help". In reverse order, as the parser wants them.
std::vector<std::string> Arguments(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  if (!arguments.empty() && arguments.front() == "help") {
    arguments.erase(arguments.begin());
    arguments.emplace_back("--help");
  }
  std::ranges::reverse(arguments);
  return arguments;
}

/// How many characters must be added, removed or replaced to make one word of the other.
std::size_t Distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    auto diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const auto replaced = std::exchange(diagonal, row[j + 1]) + (from[i] == to[j] ? 0 : 1);
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

/// What is wrong with the arguments, and the command that was probably meant.
std::string UsageText(const CLI::App& app, const CLI::ParseError& error, const std::string& word) {
  const auto commands = app.get_subcommands([](const CLI::App*) { return true; });
  const auto isNamed = [&](const CLI::App* command) { return command->get_name() == word; };
  if (word.empty() || word.starts_with('-') || std::ranges::any_of(commands, isNamed))
    return WithHint(error.what(), R"("qvio --help" lists the commands, "qvio COMMAND --help" their options)");
  const auto* const nearest = *std::ranges::min_element(
      commands, {}, [&](const CLI::App* command) { return Distance(word, command->get_name()); });
  const bool isNear = Distance(word, nearest->get_name()) <= 2;
  return WithHint(
      "no command \"" + OneLine(word) + "\"",
      isNear ? "did you mean \"qvio " + nearest->get_name() + "\"?" : R"("qvio --help" lists the commands)");
}

}  // namespace
}  // namespace qvio_tool

int main(int argc, char** argv) try {
  using namespace qvio_tool;
  std::setlocale(LC_CTYPE, "");   // for the line editor
  std::signal(SIGPIPE, SIG_DFL);  // a reader that leaves early ends the program quietly

  CLI::App app("Exchange bytes with motion controllers and sensors", "qvio");
  app.require_subcommand(1);
  app.set_version_flag("--version", "qvio " QVIO_VERSION, "Print the version of this program and exit");
  app.footer(
      "Example:\n  qvio list\n  qvio send network:192.168.0.10:5000 \"*IDN?\"\n"
      "\"qvio COMMAND --help\" gives more help.");
  Run run;
  AddListCommand(app, run);
  AddWatchCommand(app, run);
  AddOpenCommand(app, run);
  AddSendCommand(app, run);
  AddLogCommand(app, run);
  AddPingCommand(app, run);
  AddConfigCommand(app, run);
  AddInfoCommand(app, run);
  AddIfacesCommand(app, run);
  AddDoctorCommand(app, run);
  AddVersionCommand(app, run);
  AddCompleteCommand(app, run);
  AddManualCommand(app, run);
  try {
    app.parse(Arguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // help, or the version
    throw CommandFailure(UsageText(app, error, argc > 1 ? argv[1] : ""), WrongUsage);
  }
  return run();
} catch (const qvio_tool::CommandFailure& failure) {
  std::fprintf(stderr, "qvio: %s\n", failure.what());
  return failure.status();
} catch (const std::exception& failure) {
  std::fprintf(stderr, "qvio: %s\n", failure.what());
  return qvio_tool::Refused;
}
