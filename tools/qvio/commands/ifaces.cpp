#include <unistd.h>

#include "commands/commands.h"
#include "device/failure_text.h"
#include "device/search.h"
#include "terminal/output.h"
#include "terminal/text.h"

#include <nlohmann/json.hpp>

namespace qvio_tool {
namespace {

struct IfacesOptions {
  DiscoveryOptions discovery;
  bool json = false;
};

std::vector<quorvio::Interface> ListInterfaces() try {
  return quorvio::listInterfaces();
} catch (const quorvio::Error&) {
  throw CommandFailure(FailureText());
}

int Ifaces(const IfacesOptions& options) {
  options.discovery.startTrace();
  Table table({"NAME", "ADDRESS", "SUBNET MASK"});
  auto list = nlohmann::ordered_json::array();
  for (const auto& iface : ListInterfaces()) {
    table.add({iface.name, iface.address, iface.subnetMask});
    list.push_back(iface.properties);
  }
  if (options.json) {
    WriteAll(STDOUT_FILENO, JsonText(list, 2));
  } else if (!list.empty()) {
    table.print();
  }
  if (list.empty()) throw CommandFailure(kNoInterface);
  return Done;
}

}  // namespace

void AddIfacesCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("ifaces", "List the local interfaces that discovery can use");
  auto& options = SetAction(*command, run, Ifaces);
  options.discovery.addTraceTo(*command);
  command->add_flag("--json", options.json, "Print a JSON array of objects");
  command->footer("--iface takes these addresses.\nExample:\n  qvio ifaces");
}

}  // namespace qvio_tool
