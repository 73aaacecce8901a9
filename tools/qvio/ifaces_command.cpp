#include <unistd.h>

#include <cstdio>
#include <memory>

#include "commands.h"
#include "discovery_options.h"
#include "json_text.h"
#include "listed_text.h"
#include "options/record_list.h"
#include "output.h"
#include "table.h"

namespace qvio_tool {
namespace {

struct IfacesOptions {
  DiscoveryOptions discovery;
  bool json = false;
};

qvio::RecordList ListIfaces() {
  return qvio::ReadRecordList(ListedText(4096, [](char* buffer, std::size_t* size) {
    return QV_IO_EnumerateInterfaces("iface-type network\ninclude-all\n", buffer, size);
  }));
}

int Ifaces(const IfacesOptions& options) {
  options.discovery.startTrace();
  const auto ifaces = ListIfaces();
  Table table({"NAME", "ADDRESS", "SUBNET MASK"});
  for (const auto& iface : ifaces) {
    table.add({iface.at("name"), iface.at("network-host"), iface.at("network-subnet-mask")});
  }
  if (options.json) {
    WriteAll(STDOUT_FILENO, JsonText(ifaces, 2));
  } else if (!ifaces.empty()) {
    table.print();
  }
  if (!ifaces.empty()) return Done;
  std::fputs(
      "qvio: no interface for discovery: one that is up, is not the loopback, and broadcasts or multicasts\n",
      stderr);
  return Refused;
}

}  // namespace

void AddIfacesCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<IfacesOptions>();
  auto* const command = app.add_subcommand("ifaces", "List the local interfaces that discovery can use");
  options->discovery.addTraceTo(*command);
  command->add_flag("--json", options->json, "Print a JSON array of objects");
  command->footer("The addresses are those that --iface takes.\nExample:\n  qvio ifaces");
  command->callback([options, &run] { run = [options] { return Ifaces(*options); }; });
}

}  // namespace qvio_tool
