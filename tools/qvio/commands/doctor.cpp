#include <unistd.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "doctor/checks.h"
#include "terminal/output.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

struct DoctorOptions {
  bool json = false;
};

const char* WordOf(State state) {
  constexpr std::array kWords{"ok", "note", "fault", "unknown"};
  return kWords.at(static_cast<std::size_t>(state));
}

void PrintJson(const Findings& findings) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& finding : findings) {
    list.push_back({{"check", finding.check},
                    {"subject", finding.subject},
                    {"state", WordOf(finding.state)},
                    {"text", finding.text},
                    {"fix", finding.fix}});
  }
  WriteAll(STDOUT_FILENO, JsonText(list, 2));
}

std::string Cell(std::string text, std::size_t width) {
  text.resize(std::max(text.size() + 1, width), ' ');
  return text;
}

/// Not a table: on a terminal that cuts its last column, and commands are copied from here.
void PrintLines(const Findings& findings) {
  std::string text;
  for (const auto& finding : findings) {
    const auto state = Cell(WordOf(finding.state), 9);
    text += state + Cell(finding.check, 16) + OneLine(finding.subject + ": " + finding.text) + '\n';
    if (!finding.fix.empty()) text += std::string(state.size(), ' ') + "fix: " + OneLine(finding.fix) + '\n';
  }
  WriteAll(STDOUT_FILENO, text);
}

int Doctor(const DoctorOptions& options) {
  const auto findings = Diagnose(ThisMachine());
  options.json ? PrintJson(findings) : PrintLines(findings);
  const auto isFault = [](const Finding& finding) { return finding.state == State::Fault; };
  return std::ranges::any_of(findings, isFault) ? Refused : Done;
}

}  // namespace

void AddDoctorCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("doctor", "Find out why a device cannot be reached");
  auto& options = SetAction(*command, run, Doctor);
  command->add_flag("--json", options.json, "Print a JSON array of objects");
  command->footer(
      "Checks the libraries, USB chips, serial ports and the network, and changes nothing. Each finding\n"
      "is ok, a note, a fault or unknown, with the command that repairs it. Root sees more: the firewall\n"
      "rules, and the programs of other users that hold a device.\n"
      "Exit status: 0 no fault, 1 faults, 2 wrong usage.\nExample:\n  qvio doctor");
}

}  // namespace qvio_tool
