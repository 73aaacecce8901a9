#include <unistd.h>

#include <array>
#include <bit>
#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "device/requests.h"
#include "terminal/output.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

using quorvind::DeviceConfig;
using quorvind::IP4;
using quorvind::IP4FromString;
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

uint32_t Number(const IP4& address) {
  uint32_t number = 0;
  for (const auto byte : address) number = number << 8U | byte;
  return number;
}

bool IsContiguous(const IP4& mask) {
  const uint32_t number = Number(mask);
  return std::countl_one(number) + std::countr_zero(number) == 32 || number == 0xFFFFFFFF;
}

std::string AddressProblem(const std::string& text) {
  return IP4FromString(text) ? "" : OneLine(text) + " is not an address like 192.168.0.10";
}

/// "255.255.255.0", or its number of ones as in "24" or "/24".
std::optional<IP4> ReadMask(std::string_view text) {
  if (const auto mask = IP4FromString(text)) return IsContiguous(*mask) ? mask : std::nullopt;
  if (text.starts_with('/')) text.remove_prefix(1);
  unsigned ones = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), ones);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size() || ones > 32) return {};
  IP4 mask{};
  for (unsigned bit = 0; bit < ones; ++bit) mask.at(bit / 8) |= static_cast<uint8_t>(0x80U >> bit % 8);
  return mask;
}

std::string MaskProblem(const std::string& text) {
  return ReadMask(text) ? "" : OneLine(text) + " is not a subnet mask like 255.255.255.0 or 24";
}

/// Why a device with these addresses could not be reached; empty: it can. Gateway 0.0.0.0 means none.
std::string ProblemOf(const DeviceConfig& config) {
  const auto address = Number(config.IP);
  const auto mask = Number(config.SubnetMask);
  const auto host = ~mask;
  const auto subnet = IP4ToString(config.IP) + " with mask " + IP4ToString(config.SubnetMask);
  if (address == 0 || config.IP[0] >= 224) return IP4ToString(config.IP) + " is not an address of one device";
  if (mask == 0 || !IsContiguous(config.SubnetMask)) {
    return IP4ToString(config.SubnetMask) + " is not a subnet mask";
  }
  if (host > 1 && ((address & host) == 0 || (address & host) == host)) {
    return subnet + " is the address of the subnet or its broadcast address";
  }
  const auto gateway = Number(config.Gateway);
  if (gateway != 0 && ((gateway ^ address) & mask) != 0) {
    return "the gateway " + IP4ToString(config.Gateway) + " is outside the subnet of " + subnet +
           "; give another --gateway, or 0.0.0.0 for none";
  }
  return {};
}

/// The configuration with the values from the command line.
DeviceConfig Changed(DeviceConfig config, const ConfigOptions& options) {
  const auto replace = [](IP4& address, const std::string& text) {
    if (!text.empty()) address = IP4FromString(text).value();
  };
  replace(config.IP, options.ip);
  if (!options.mask.empty()) config.SubnetMask = ReadMask(options.mask).value();
  replace(config.Gateway, options.gateway);
  config.DHCP = options.dhcp.value_or(config.DHCP);
  return config;
}

void RequireSound(const DeviceConfig& config) {
  const auto problem = ProblemOf(config);
  if (!problem.empty()) throw CommandFailure(problem + "; nothing was changed", WrongUsage);
}

bool HasAddress(const ConfigOptions& options) {
  return !options.ip.empty() || !options.mask.empty() || !options.gateway.empty();
}

/// The checks that do not need the device's answer.
void CheckArguments(const ConfigOptions& options) {
  if (!HasAddress(options) && !options.dhcp) {
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
  if (after.DHCP && HasAddress(options))
    std::fputs(
        "qvio: note: DHCP is on, so the device does not use these addresses; --no-dhcp switches it off\n",
        stderr);
  options.confirmation.ask(Summary(requests.name(), before, after));
  requests.setConfiguration(after);
  return Done;
}

int Reset(const ConfigOptions& options) {
  options.confirmation.requirePossible();
  options.target.discovery.startTrace();
  DeviceRequests requests(options.target);
  options.confirmation.ask(requests.name() +
                           "\n  goes back to its factory network configuration: its address may change,\n"
                           "  and connections to it may end\n");
  requests.resetConfiguration();
  return Done;
}

void AddGet(CLI::App& group, Run& run) {
  auto* const command = group.add_subcommand("get", "Print a device's network configuration");
  auto& options = SetAction(*command, run, Get);
  options.target.addTo(*command);
  command->add_flag("--json", options.json, "Print a JSON object");
  command->footer(std::string(kStatuses) + "Example:\n  qvio config get SN-1 --iface 192.168.0.2");
}

void AddSet(CLI::App& group, Run& run) {
  auto* const command = group.add_subcommand("set", "Change a device's network configuration");
  auto& options = SetAction(*command, run, Set);
  options.target.addTo(*command);
  command->add_option("--ip", options.ip, "The device's address")->check(AddressProblem);
  command->add_option("--mask", options.mask, "Its subnet mask, or the number of its ones")
      ->check(MaskProblem);
  command->add_option("--gateway", options.gateway, "Its gateway; 0.0.0.0: none")->check(AddressProblem);
  auto* const dhcp = command->add_flag_callback(
      "--dhcp", [&options] { options.dhcp = true; }, "Take the addresses from a DHCP server");
  command
      ->add_flag_callback(
          "--no-dhcp", [&options] { options.dhcp = false; }, "Use the addresses given here")
      ->excludes(dhcp);
  options.confirmation.addTo(*command);
  command->footer(
      "Values that are not given stay. Old and new values are shown before anything is changed.\n" +
      std::string(kStatuses) +
      "Example:\n  qvio config set SN-1 --ip 192.168.0.10 --mask 255.255.255.0 --no-dhcp");
}

void AddReset(CLI::App& group, Run& run) {
  auto* const command = group.add_subcommand("reset", "Reset a device to its factory network configuration");
  auto& options = SetAction(*command, run, Reset);
  options.target.addTo(*command);
  options.confirmation.addTo(*command);
  command->footer(std::string(kStatuses) + "Example:\n  qvio config reset SN-1 --iface 192.168.0.2");
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
