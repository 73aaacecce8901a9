#include <unistd.h>

#include <memory>

#include "commands.h"
#include "config_check.h"
#include "confirm.h"
#include "device_requests.h"
#include "json_text.h"
#include "output.h"
#include "result_text.h"

namespace qvio_tool {
namespace {

using quorvind::DeviceConfig;
using quorvind::IP4ToString;

struct ConfigOptions {
  TargetOptions target;
  Confirmation confirmation;
  bool json = false;
  std::string ip;  ///< this and the next three: empty where not given
  std::string mask;
  std::string gateway;
  std::optional<bool> dhcp;
};

constexpr const char* kStatuses = "Exit status: 0 done, 1 refused, 2 wrong usage, 124 no answer in time.\n";

/// A value of a configuration, for people.
struct Item {
  const char* name;
  std::string value;
};

std::array<Item, 4> ItemsOf(const DeviceConfig& config) {
  return {{{"ip", IP4ToString(config.IP)},
           {"mask", IP4ToString(config.SubnetMask)},
           {"gateway", IP4ToString(config.Gateway)},
           {"dhcp", config.DHCP ? "on" : "off"}}};
}

std::string Line(const Item& item, const std::string& rest) {
  std::string line = item.name;
  line.resize(9, ' ');
  return line + item.value + rest + '\n';
}

int Get(const ConfigOptions& options) {
  options.target.discovery.startTrace();
  DeviceRequests requests(options.target);
  const auto config = requests.configuration();
  std::string text;
  if (options.json) {
    text = JsonText({{"device-sn", options.target.serialNumber},
                     {"device-type", requests.type()},
                     {"ip", IP4ToString(config.IP)},
                     {"mask", IP4ToString(config.SubnetMask)},
                     {"gateway", IP4ToString(config.Gateway)},
                     {"dhcp", config.DHCP}},
                    2);
  } else {
    for (const auto& item : ItemsOf(config)) text += Line(item, "");
  }
  WriteAll(STDOUT_FILENO, text);
  return Done;
}

/// The configuration with what is given on the command line.
DeviceConfig Changed(DeviceConfig config, const ConfigOptions& options) {
  const auto replace = [](quorvind::IP4& address, const std::string& text) {
    if (!text.empty()) address = quorvind::IP4FromString(text).value();
  };
  replace(config.IP, options.ip);
  replace(config.SubnetMask, options.mask);
  replace(config.Gateway, options.gateway);
  config.DHCP = options.dhcp.value_or(config.DHCP);
  return config;
}

void RequireSound(const DeviceConfig& config) {
  const auto problem = ProblemOf(config);
  if (!problem.empty()) throw CommandFailure(problem + "; nothing was changed", WrongUsage);
}

/// What can be said without asking the device.
void CheckArguments(const ConfigOptions& options) {
  const bool hasAddress = !options.ip.empty() || !options.mask.empty() || !options.gateway.empty();
  if (!hasAddress && !options.dhcp) {
    throw CommandFailure("nothing to change: give --ip, --mask, --gateway, --dhcp or --no-dhcp", WrongUsage);
  }
  const bool isComplete = !options.ip.empty() && !options.mask.empty() && !options.gateway.empty();
  if (isComplete) RequireSound(Changed({}, options));
  options.confirmation.requirePossible();
}

std::string Summary(const std::string& device, const DeviceConfig& before, const DeviceConfig& after) {
  const auto old = ItemsOf(before);
  const auto fresh = ItemsOf(after);
  auto text = device + '\n';
  for (std::size_t i = 0; i < old.size(); ++i) {
    text += "  " + Line(old.at(i), old.at(i).value == fresh.at(i).value ? "" : " -> " + fresh.at(i).value);
  }
  return text;
}

int Set(const ConfigOptions& options) {
  CheckArguments(options);
  options.target.discovery.startTrace();
  DeviceRequests requests(options.target);
  const auto before = requests.configuration();
  const auto after = Changed(before, options);
  if (!after.DHCP) RequireSound(after);  // with DHCP the device does not use them
  options.confirmation.ask(Summary(requests.name(), before, after));
  requests.setConfiguration(after);
  return Done;
}

int Reset(const ConfigOptions& options) {
  options.confirmation.requirePossible();
  options.target.discovery.startTrace();
  DeviceRequests requests(options.target);
  options.confirmation.ask(
      requests.name() +
      "\n  goes back to the network configuration that its maker has preset: its address "
      "may\n  change, and connections to it may end\n");
  requests.resetConfiguration();
  return Done;
}

void AddGet(CLI::App& group, Run& run) {
  const auto options = std::make_shared<ConfigOptions>();
  auto* const command = group.add_subcommand("get", "Print a device's network configuration");
  options->target.addTo(*command);
  command->add_flag("--json", options->json, "Print a JSON object");
  command->footer(std::string(kStatuses) + "Example:\n  qvio config get SN-1 --iface 192.168.0.2");
  command->callback([options, &run] { run = [options] { return Get(*options); }; });
}

void AddSet(CLI::App& group, Run& run) {
  const auto options = std::make_shared<ConfigOptions>();
  auto* const command = group.add_subcommand("set", "Change a device's network configuration");
  options->target.addTo(*command);
  command->add_option("--ip", options->ip, "The device's address")->check(AddressText());
  command->add_option("--mask", options->mask, "Its subnet mask")->check(MaskText());
  command->add_option("--gateway", options->gateway, "Its gateway; 0.0.0.0: none")->check(AddressText());
  auto* const dhcp = command->add_flag_callback(
      "--dhcp", [options] { options->dhcp = true; }, "Take the addresses from a DHCP server");
  command
      ->add_flag_callback(
          "--no-dhcp", [options] { options->dhcp = false; }, "Use the addresses given here")
      ->excludes(dhcp);
  options->confirmation.addTo(*command);
  command->footer(
      "What is not given stays as it is. Old and new values are shown before anything is changed.\n" +
      std::string(kStatuses) +
      "Example:\n  qvio config set SN-1 --ip 192.168.0.10 --mask 255.255.255.0 --no-dhcp");
  command->callback([options, &run] { run = [options] { return Set(*options); }; });
}

void AddReset(CLI::App& group, Run& run) {
  const auto options = std::make_shared<ConfigOptions>();
  auto* const command = group.add_subcommand("reset", "Give a device its preset network configuration back");
  options->target.addTo(*command);
  options->confirmation.addTo(*command);
  command->footer(std::string(kStatuses) + "Example:\n  qvio config reset SN-1 --iface 192.168.0.2");
  command->callback([options, &run] { run = [options] { return Reset(*options); }; });
}

}  // namespace

void AddConfigCommand(CLI::App& app, Run& run) {
  auto* const group = app.add_subcommand(
      "config", "Read or change the network configuration of a device, also one outside of the subnet");
  group->require_subcommand(1);
  group->footer("Example:\n  qvio config get SN-1\n  qvio config set SN-1 --dhcp");
  AddGet(*group, run);
  AddSet(*group, run);
  AddReset(*group, run);
}

}  // namespace qvio_tool
