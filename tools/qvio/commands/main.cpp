// qvio: the command-line tool.

#include <CLI/CLI.hpp>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>

#include "commands/commands.h"

int main(int argc, char** argv) try {
  using namespace qvio_tool;
  std::setlocale(LC_CTYPE, "");   // for the line editor
  std::signal(SIGPIPE, SIG_DFL);  // a reader that leaves early ends the program quietly

  CLI::App app("Exchange bytes with motion controllers and sensors", "qvio");
  app.require_subcommand(1);
  app.footer(
      "Example:\n  qvio list\n  qvio send network:192.168.0.10:5000 \"*IDN?\"\n"
      "\"qvio COMMAND --help\" gives more help.");
  Run run;
  AddListCommand(app, run);
  AddWatchCommand(app, run);
  AddOpenCommand(app, run);
  AddSendCommand(app, run);
  AddConfigCommand(app, run);
  AddInfoCommand(app, run);
  AddIfacesCommand(app, run);
  AddVersionCommand(app, run);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? Done : WrongUsage;
  }
  return run();
} catch (const qvio_tool::CommandFailure& failure) {
  std::fprintf(stderr, "qvio: %s\n", failure.what());
  return failure.status();
} catch (const std::exception& failure) {
  std::fprintf(stderr, "qvio: %s\n", failure.what());
  return qvio_tool::Refused;
}
