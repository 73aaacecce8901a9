#include "device/named_devices.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <fstream>

#include "terminal/failure.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

/// Takes one line of a table.
void Take(const CLI::ConfigItem& item, NamedDevice& device) {
  if (item.name == "locator" && item.inputs.size() == 1) {
    device.locator = item.inputs.front();
  } else if (item.name == "options") {
    device.options = item.inputs;
  } else if (item.name == "eol" && item.inputs.size() == 1 && kLineEnds.contains(item.inputs.front())) {
    device.eol = item.inputs.front();
  } else {
    throw CommandFailure(DevicesFile() + ": [" + OneLine(item.parents.front()) + "] cannot have " +
                             OneLine(item.name) + ": a device has locator, options and eol",
                         WrongUsage);
  }
}

/// The parser marks the begin and the end of a table by these.
bool IsMark(const CLI::ConfigItem& item) { return item.name == "++" || item.name == "--"; }

}  // namespace

std::string DevicesFile() {
  if (const auto* const folder = std::getenv("XDG_CONFIG_HOME")) return std::string(folder) + "/qvio.toml";
  const auto* const home = std::getenv("HOME");
  return home != nullptr ? std::string(home) + "/.config/qvio.toml" : "";
}

std::set<std::string> DeviceNames() {
  std::ifstream file(DevicesFile());
  std::set<std::string> names;
  for (const auto& item : CLI::ConfigTOML().from_config(file))
    if (item.parents.size() == 1) names.insert(item.parents.front());
  return names;
}

std::optional<NamedDevice> FindNamedDevice(const std::string& name) {
  std::ifstream file(DevicesFile());
  std::optional<NamedDevice> device;
  for (const auto& item : CLI::ConfigTOML().from_config(file)) {
    if (item.parents != std::vector{name} || IsMark(item)) continue;
    if (!device) device.emplace();
    Take(item, *device);
  }
  if (device && device->locator.empty())
    throw CommandFailure(DevicesFile() + ": [" + OneLine(name) + "] has no locator", WrongUsage);
  return device;
}

}  // namespace qvio_tool
