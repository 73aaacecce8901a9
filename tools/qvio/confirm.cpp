#include "confirm.h"

#include <unistd.h>

#include <iostream>

#include "output.h"
#include "result_text.h"

namespace qvio_tool {

void Confirmation::addTo(CLI::App& command) { command.add_flag("--yes", yes_, "Change it without asking"); }

void Confirmation::requirePossible() const {
  if (yes_ || ::isatty(STDIN_FILENO) != 0) return;
  throw CommandFailure("standard input is no terminal on which to ask; --yes changes it without asking",
                       WrongUsage);
}

void Confirmation::ask(const std::string& summary) const {
  WriteAll(STDERR_FILENO, summary);
  if (yes_) return;
  WriteAll(STDERR_FILENO, "Change it? [y/N] ");
  std::string answer;
  if (!std::getline(std::cin, answer)) WriteAll(STDERR_FILENO, "\n");
  if (answer != "y" && answer != "Y" && answer != "yes") throw CommandFailure("nothing was changed");
}

}  // namespace qvio_tool
