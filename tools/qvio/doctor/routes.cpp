#include <algorithm>
#include <fstream>
#include <sstream>

#include "device/search.h"
#include "doctor/checks.h"
#include "doctor/subnet.h"
#include "util/text.h"

namespace qvio_tool {
namespace {

using quorvind::Interface;
using quorvind::IP4;
using quorvind::IP4ToString;
using quorvio::Device;

struct Route {
  std::string interface;
  IP4 network{};
  IP4 gateway{};  ///< 0.0.0.0: none, the network is on the interface
  IP4 mask{};
  unsigned metric = 0;
};

/// Lines look like "eth0 0000A8C0 00000000 0001 0 0 100 00FFFFFF 0 0 0"; the system writes an address as a
/// number of its own byte order.
std::vector<Route> ReadRoutes(const Machine& machine) {
  constexpr unsigned kUsable = 0x0001;
  constexpr unsigned kReject = 0x0200;
  std::vector<Route> routes;
  std::ifstream file(machine.at("/proc/net/route"));
  std::string line;
  for (std::getline(file, line); std::getline(file, line);) {
    std::istringstream words(line);
    Route route;
    uint32_t network = 0, gateway = 0, mask = 0;
    unsigned flags = 0, references = 0, uses = 0;
    words >> route.interface >> std::hex >> network >> gateway >> flags >> std::dec >> references >> uses >>
        route.metric >> std::hex >> mask;
    if (!words || (flags & kUsable) == 0 || (flags & kReject) != 0) continue;
    route.network = std::bit_cast<IP4>(network);
    route.gateway = std::bit_cast<IP4>(gateway);
    route.mask = std::bit_cast<IP4>(mask);
    routes.push_back(route);
  }
  return routes;
}

/// As the system chooses: the longest mask, then the smallest metric.
const Route* RouteTo(const IP4& address, const std::vector<Route>& routes) {
  const Route* best = nullptr;
  for (const auto& route : routes) {
    if (!IsInSubnet(address, route.network, route.mask)) continue;
    if (best == nullptr || route.mask > best->mask ||
        (route.mask == best->mask && route.metric < best->metric))
      best = &route;
  }
  return best;
}

const Interface* InterfaceOf(const Machine& machine, const Device& device) {
  const auto found = std::ranges::find_if(machine.interfaces, [&](const Interface& known) {
    return "network:" + IP4ToString(known.address) == device.interface;
  });
  return found != machine.interfaces.end() ? &*found : nullptr;
}

/// An address in the subnet that neither this machine nor a device has; other devices may have it.
std::optional<IP4> UnusedAddress(const Machine& machine, const Interface& interface) {
  const auto isUsed = [&](const IP4& address) {
    return address == interface.address || std::ranges::any_of(machine.devices, [&](const Device& device) {
             return device.host == IP4ToString(address);
           });
  };
  const auto broadcast = BroadcastOf(interface);
  auto address = std::bit_cast<IP4>(Bits(interface.address) & Bits(interface.subnetMask));
  for (unsigned last = address[3] + 10U; last < broadcast[3]; ++last) {
    address[3] = static_cast<unsigned char>(last);
    if (!isUsed(address)) return address;
  }
  return {};
}

/// The command that gives the device an address in the subnet on which it was heard.
std::string Configure(const Machine& machine, const Device& device) {
  const auto* const interface = InterfaceOf(machine, device);
  if (interface == nullptr) return {};
  const auto address = UnusedAddress(machine, *interface);
  if (!address) return {};
  return "qvio config set " + ShellWord(device.serialNumber) + " --type " + std::to_string(device.type) +
         " --iface " + IP4ToString(interface->address) + " --ip " + IP4ToString(*address) + " --mask " +
         IP4ToString(interface->subnetMask) + " --gateway 0.0.0.0 --no-dhcp";
}

bool HasTwin(const Machine& machine, const Device& device) {
  return std::ranges::any_of(machine.devices, [&](const Device& other) {
    return other.host == device.host && other.port == device.port &&
           other.serialNumber != device.serialNumber;
  });
}

Finding CheckDevice(const Machine& machine, const Device& device, const std::vector<Route>& routes) {
  const auto place = device.host + ':' + std::to_string(device.port);
  const auto* const interface = InterfaceOf(machine, device);
  const auto address = quorvind::IP4FromString(device.host).value_or(IP4{});
  const auto fault = [&](const std::string& text, const std::string& fix) {
    return Finding{device.serialNumber, State::Fault, text, fix};
  };
  if (address == IP4{}) return fault("has no address", Configure(machine, device));
  if (HasTwin(machine, device))
    return fault("another device has the same address " + place, Configure(machine, device));
  const auto* const route = RouteTo(address, routes);
  if (route == nullptr) return fault("there is no route to " + place, Configure(machine, device));
  if (route->gateway != IP4{})
    return fault(place +
                     " is outside the subnet of the interface that hears the device, and is looked for "
                     "behind the gateway " +
                     IP4ToString(route->gateway),
                 Configure(machine, device));
  if (interface != nullptr && interface->name != route->interface)
    return fault(
        place + " is looked for on " + route->interface + ", but the device is on " + interface->name,
        "sudo ip route add " + device.host + " dev " + ShellWord(interface->name));
  if (!device.available) return {device.serialNumber, State::Note, place + " is in use by another program"};
  return {device.serialNumber, State::Ok, place + " is on " + route->interface};
}

}  // namespace

Findings CheckRoutes(const Machine& machine) {
  if (!machine.searchProblem.empty())
    return {{"network devices", State::Unknown, "not searched for: " + machine.searchProblem}};
  if (machine.devices.empty())
    return {{"network devices", State::Note, std::string("none has answered: ") + kWhatToCheck}};
  const auto routes = ReadRoutes(machine);
  Findings findings;
  for (const auto& device : machine.devices) findings.push_back(CheckDevice(machine, device, routes));
  return findings;
}

}  // namespace qvio_tool
