#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

#include "commands.h"
#include "device_search.h"
#include "discovery_options.h"
#include "json_text.h"
#include "output.h"
#include "table.h"
#include "text_codec.h"

namespace qvio_tool {
namespace {

using std::chrono::milliseconds;

struct ListOptions {
  DiscoveryOptions discovery;
  uint32_t timeoutMs = 1000;
  uint32_t tries = 3;
  bool all = false;
  bool json = false;
  bool locators = false;
};

/// Every device that has answered once, in the order of first appearance, as it was last.
std::vector<Device> Search(const ListOptions& options) {
  const DeviceSearch search(options.discovery.addresses());
  const milliseconds each{std::max(options.timeoutMs / options.tries, 1U)};
  std::vector<Device> devices;
  std::map<Device, std::size_t, DeviceOrder> positions;
  for (uint32_t asked = 0; asked < options.tries; ++asked) {
    for (auto& device : search.ask(each)) {
      const auto [known, isNew] = positions.try_emplace(device, devices.size());
      if (isNew) devices.emplace_back();
      devices[known->second] = std::move(device);
    }
  }
  return devices;
}

void PrintJson(const std::vector<Device>& devices) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& device : devices) list.push_back(ToJson(device));
  WriteAll(STDOUT_FILENO, JsonText(list, 2));
}

void PrintLocators(const std::vector<Device>& devices) {
  for (const auto& device : devices) WriteAll(STDOUT_FILENO, OneLine(device.locator) + '\n');
}

void PrintTable(const std::vector<Device>& devices) {
  Table table({"LOCATOR", "TYPE", "SERIAL NUMBER", "ADDRESS", "PORT", "AVAILABLE", "INFO"});
  for (const auto& device : devices) {
    table.add({device.locator, std::to_string(device.type), device.serialNumber, device.host,
               std::to_string(device.port), device.available ? "yes" : "no", device.info});
  }
  table.print();
}

void TellNothingFound(std::size_t unavailable) {
  if (unavailable > 0) {
    std::fprintf(stderr, "qvio: no device is available; --all shows the %zu that %s not\n", unavailable,
                 unavailable == 1 ? "is" : "are");
    return;
  }
  std::fprintf(stderr,
               "qvio: no device has answered: %s; --iface ADDRESS picks the interface, --timeout MS waits "
               "longer, --all shows unavailable devices too\n",
               kWhatToCheck);
}

int List(const ListOptions& options) {
  options.discovery.startTrace();
  auto devices = Search(options);
  const auto isHidden = [&](const Device& device) { return !device.available && !options.all; };
  const auto hidden = std::erase_if(devices, isHidden);
  if (options.json) {
    PrintJson(devices);
  } else if (options.locators) {
    PrintLocators(devices);
  } else if (!devices.empty()) {
    PrintTable(devices);
  }
  if (!devices.empty()) return Done;
  TellNothingFound(hidden);
  return Refused;
}

}  // namespace

void AddListCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<ListOptions>();
  auto* const command = app.add_subcommand("list", "List the network devices that answer");
  options->discovery.addTo(*command);
  command->add_option("--timeout", options->timeoutMs, "Milliseconds to wait in total")
      ->capture_default_str();
  command->add_option("--tries", options->tries, "How often to ask within that time")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  command->add_flag("--all", options->all, "Show devices that are not available too");
  auto* const json = command->add_flag("--json", options->json, "Print a JSON array of objects");
  command->add_flag("--locators", options->locators, "Print only the locators, one a line")->excludes(json);
  command->footer(
      "Exit status: 0 found, 1 nothing found, 2 wrong usage.\nExample:\n"
      "  qvio list --iface 192.168.0.2\n"
      "  qvio list --locators | head -n 1");
  command->callback([options, &run] { run = [options] { return List(*options); }; });
}

}  // namespace qvio_tool
