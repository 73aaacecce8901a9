#include <memory>

#include "commands.h"
#include "config_check.h"
#include "confirm.h"
#include "device_requests.h"
#include "text_codec.h"

namespace qvio_tool {
namespace {

struct InfoOptions {
  TargetOptions target;
  Confirmation confirmation;
  std::string text;
};

std::string Quoted(const std::string& text) { return '"' + OneLine(text) + '"'; }

int Set(const InfoOptions& options) {
  options.confirmation.requirePossible();
  options.target.discovery.startTrace();
  auto target = options.target;
  const auto present = FindTarget(target);  // with a type too: only this tells the present text
  if (present) target.type = present->type;
  DeviceRequests requests(target);
  options.confirmation.ask(requests.name() + "\n  info  " + (present ? Quoted(present->info) : "unknown") +
                           " -> " + Quoted(options.text) + '\n');
  requests.setDeviceInfo(options.text);
  return Done;
}

}  // namespace

void AddInfoCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<InfoOptions>();
  auto* const group =
      app.add_subcommand("info", "Change the text that a network device describes itself with");
  group->require_subcommand(1);
  group->footer("Example:\n  qvio info set SN-1 \"Stage at the north window\"");
  auto* const command = group->add_subcommand("set", "Give a device another text");
  options->target.addTo(*command);
  command->add_option("text", options->text, "Up to 63 printable ASCII characters")
      ->required()
      ->check(DeviceInfoText());
  options->confirmation.addTo(*command);
  command->footer(
      "Exit status: 0 changed, 1 refused, 2 wrong usage, 124 no answer in time.\nExample:\n"
      "  qvio info set SN-1 \"Stage at the north window\" --iface 192.168.0.2");
  command->callback([options, &run] { run = [options] { return Set(*options); }; });
}

}  // namespace qvio_tool
