#include <algorithm>

#include "commands/commands.h"
#include "device/requests.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

struct InfoOptions {
  TargetOptions target;
  Confirmation confirmation;
  std::string text;
};

std::string Quoted(const std::string& text) { return '"' + OneLine(text) + '"'; }

/// What is wrong with a device's info text; empty: nothing.
std::string ProblemOf(const std::string& text) {
  const auto isPrintable = [](char character) { return character >= 0x20 && character <= 0x7E; };
  if (!std::ranges::all_of(text, isPrintable)) return "not all printable ASCII";
  return text.size() > kLongestText ? "longer than " + std::to_string(kLongestText) + " bytes" : "";
}

int Set(const InfoOptions& options) {
  options.confirmation.requirePossible();
  options.target.discovery.startTrace();
  auto target = options.target;
  const auto present = FindTarget(target);  // with a type too: only the search returns the present text
  if (present) target.type = present->type;
  DeviceRequests requests(target);
  options.confirmation.ask(requests.name() + "\n  info  " + (present ? Quoted(present->info) : "unknown") +
                           " -> " + Quoted(options.text) + '\n');
  requests.setDeviceInfo(options.text);
  return Done;
}

}  // namespace

void AddInfoCommand(CLI::App& app, Run& run) {
  auto* const group =
      app.add_subcommand("info", "Change the text with which a network device describes itself");
  group->require_subcommand(1);
  group->footer("Example:\n  qvio info set SN-1 \"Stage at the north window\"");
  auto* const command = group->add_subcommand("set", "Give a device another text");
  auto& options = SetAction(*command, run, Set);
  options.target.addTo(*command);
  command->add_option("text", options.text, "Up to 63 printable ASCII characters")
      ->required()
      ->check(ProblemOf);
  options.confirmation.addTo(*command);
  command->footer(
      "Exit status: 0 changed, 1 refused, 2 wrong usage, 124 no answer in time.\nExample:\n"
      "  qvio info set SN-1 \"Stage at the north window\" --iface 192.168.0.2");
}

}  // namespace qvio_tool
