#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "commands/commands.h"
#include "device/listing.h"
#include "terminal/text.h"
#include "util/lookup.h"

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

  [[nodiscard]] bool wants(const char* kind) const { return cppu::Allows(kinds, kind); }
};

DeviceList FindAll(const ListOptions& options) {
  DeviceList list;
  if (options.wants("usb")) list.addUsbDevices();
  if (options.wants("network"))
    list.addNetworkDevices(options.discovery, std::chrono::milliseconds(options.timeoutMs), options.tries);
  if (options.wants("serial")) list.addSerialPorts();
  std::ranges::sort(list.devices, {}, &ListedDevice::locator);  // by kind, too; answers come in any order
  return list;
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
  if (devices.empty()) return;
  Table table(kListHeadings);
  for (const auto& device : devices) table.add(device.row);
  table.print();
}

void ReportNothingFound(std::size_t hidden, bool searched) {
  if (hidden > 0) {
    std::fprintf(stderr, "qvio: no device is available; --all lists the %zu that %s not\n", hidden,
                 hidden == 1 ? "is" : "are");
  } else if (searched) {
    std::fprintf(
        stderr,
        "qvio: no device has answered: %s; --iface ADDRESS selects the interface, --timeout MS waits "
        "longer, --all lists unavailable devices too; \"qvio doctor\" looks for the cause\n",
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
  } else {
    options.locators ? PrintLocators(devices) : PrintTable(devices);
  }
  for (const auto& note : notes) std::fprintf(stderr, "qvio: note: %s\n", note.c_str());
  if (!devices.empty()) return Done;
  ReportNothingFound(hidden, options.wants("network"));
  return Refused;
}

}  // namespace

void AddListCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("list", "List network devices, USB devices and serial ports");
  auto& options = SetAction(*command, run, List);
  command->add_option("--kind", options.kinds, "Only this kind: usb, network or serial; may be repeated")
      ->check(CLI::IsMember({"usb", "network", "serial"}))
      ->take_all()
      ->allow_extra_args(false);
  options.discovery.addTo(*command);
  command->add_option("--timeout", options.timeoutMs, "Milliseconds to wait for network devices, in total")
      ->capture_default_str();
  command->add_option("--tries", options.tries, "How often to ask within that time")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  command->add_flag("--all", options.all, "List devices that are not available too");
  auto* const json = command->add_flag("--json", options.json, "Print a JSON array of objects");
  command->add_flag("--locators", options.locators, "Print only the locators, one a line")->excludes(json);
  command->footer(
      "A kind that cannot be listed gives a note; the other kinds are listed.\n"
      "Exit status: 0 found, 1 nothing found, 2 wrong usage.\nExample:\n"
      "  qvio list --iface 192.168.0.2\n"
      "  qvio list --kind usb --locators | head -n 1");
}

}  // namespace qvio_tool
