#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>

#include "commands.h"
#include "json_text.h"
#include "listing.h"
#include "output.h"
#include "text_codec.h"

namespace qvio_tool {
namespace {

struct ListOptions {
  DiscoveryOptions discovery;
  std::vector<std::string> kinds;
  uint32_t timeoutMs = 1000;
  uint32_t tries = 3;
  bool all = false;
  bool json = false;
  bool locators = false;

  [[nodiscard]] bool wants(const char* kind) const {
    return kinds.empty() || std::ranges::find(kinds, kind) != kinds.end();
  }
};

/// What was found of all kinds, and why some could not be listed.
struct Found {
  std::vector<ListedDevice> devices;
  std::vector<std::string> notes;

  void add(Listing listing) {
    std::ranges::move(listing.devices, std::back_inserter(devices));
    if (!listing.note.empty()) notes.push_back(listing.note);
  }
};

Found FindAll(const ListOptions& options) {
  Found found;
  if (options.wants("usb")) found.add(ListUsbDevices());
  if (options.wants("network"))
    found.add(
        ListNetworkDevices(options.discovery, std::chrono::milliseconds(options.timeoutMs), options.tries));
  if (options.wants("serial")) found.add(ListSerialPorts());
  return found;
}

void PrintJson(const std::vector<ListedDevice>& devices) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& device : devices) list.push_back(device.json);
  WriteAll(STDOUT_FILENO, JsonText(list, 2));
}

void PrintLocators(const std::vector<ListedDevice>& devices) {
  for (const auto& device : devices) WriteAll(STDOUT_FILENO, OneLine(device.locator) + '\n');
}

void PrintTable(const std::vector<ListedDevice>& devices) {
  Table table(kListHeadings);
  for (const auto& device : devices) table.add(device.row);
  table.print();
}

void TellNothingFound(std::size_t hidden, bool searched) {
  if (hidden > 0) {
    std::fprintf(stderr, "qvio: no device is available; --all shows the %zu that %s not\n", hidden,
                 hidden == 1 ? "is" : "are");
  } else if (searched) {
    std::fprintf(stderr,
                 "qvio: no device has answered: %s; --iface ADDRESS picks the interface, --timeout MS waits "
                 "longer, --all shows unavailable devices too\n",
                 kWhatToCheck);
  } else {
    std::fputs("qvio: no device was found; is it plugged in?\n", stderr);
  }
}

int List(const ListOptions& options) {
  options.discovery.startTrace();
  auto [devices, notes] = FindAll(options);
  const auto hidden =
      std::erase_if(devices, [&](const ListedDevice& device) { return !device.available && !options.all; });
  if (options.json) {
    PrintJson(devices);
  } else if (options.locators) {
    PrintLocators(devices);
  } else if (!devices.empty()) {
    PrintTable(devices);
  }
  for (const auto& note : notes) std::fprintf(stderr, "qvio: note: %s\n", note.c_str());
  if (!devices.empty()) return Done;
  TellNothingFound(hidden, options.wants("network"));
  return Refused;
}

}  // namespace

void AddListCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<ListOptions>();
  auto* const command =
      app.add_subcommand("list", "List the devices there are: on the network, at USB, and serial ports");
  command->add_option("--kind", options->kinds, "Only this kind: usb, network or serial; may be repeated")
      ->check(CLI::IsMember({"usb", "network", "serial"}))
      ->take_all()
      ->allow_extra_args(false);
  options->discovery.addTo(*command);
  command->add_option("--timeout", options->timeoutMs, "Milliseconds to wait for network devices, in total")
      ->capture_default_str();
  command->add_option("--tries", options->tries, "How often to ask within that time")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  command->add_flag("--all", options->all, "Show devices that are not available too");
  auto* const json = command->add_flag("--json", options->json, "Print a JSON array of objects");
  command->add_flag("--locators", options->locators, "Print only the locators, one a line")->excludes(json);
  command->footer(
      "A kind that cannot be listed is told in a note and does not keep the others back.\n"
      "Exit status: 0 found, 1 nothing found, 2 wrong usage.\nExample:\n"
      "  qvio list --iface 192.168.0.2\n"
      "  qvio list --kind usb --locators | head -n 1");
  command->callback([options, &run] { run = [options] { return List(*options); }; });
}

}  // namespace qvio_tool
