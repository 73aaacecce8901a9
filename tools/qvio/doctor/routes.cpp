#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "device/search.h"
#include "doctor/checks.h"
#include "doctor/subnet.h"

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
    uint32_t network = 0;
    uint32_t gateway = 0;
    uint32_t mask = 0;
    unsigned flags = 0;
    unsigned references = 0;
    unsigned uses = 0;
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

/// Checks one device after the other.
class DeviceCheck {
 public:
  explicit DeviceCheck(const Machine& machine) : machine_(machine), routes_(ReadRoutes(machine)) {
    for (const auto& interface : machine.interfaces) used_.insert(interface.address);
    for (const auto& device : machine.devices) used_.insert(AddressOf(device));
  }

  Finding check(const Device& device) {
    const auto place = device.host + ':' + std::to_string(device.port);
    const auto* const interface = InterfaceOf(machine_, device);
    const auto needsAddress = [&](const std::string& text) {
      return Finding{device.serialNumber, State::Fault, text, configure(device, interface)};
    };
    if (AddressOf(device) == IP4{}) return needsAddress("has no address");
    const auto [twin, isFirst] = owners_.try_emplace(place, device.serialNumber);
    if (!isFirst && twin->second != device.serialNumber)
      return needsAddress(place + " is the address of device " + twin->second + " too");
    const auto* const route = RouteTo(AddressOf(device), routes_);
    if (route == nullptr) return needsAddress("there is no route to " + place);
    if (route->gateway != IP4{})
      return needsAddress("the route to " + place + " leads over the gateway " + IP4ToString(route->gateway) +
                          ", but the device is on this side of it");
    const bool isOnRoute = interface == nullptr || interface->name == route->interface;
    if (!isOnRoute && !isHeardOn(device, route->interface))
      return {device.serialNumber, State::Fault,
              "the route to " + place + " leads over " + route->interface + ", but the device is on " +
                  interface->name,
              "sudo ip route add " + device.host + " dev " + ShellWord(interface->name)};
    if (!device.available) return {device.serialNumber, State::Note, place + " is in use by another program"};
    return {device.serialNumber, State::Ok, place + " is on " + route->interface};
  }

 private:
  static IP4 AddressOf(const Device& device) { return quorvind::IP4FromString(device.host).value_or(IP4{}); }

  /// A device may be heard on several interfaces.
  [[nodiscard]] bool isHeardOn(const Device& device, const std::string& name) const {
    return std::ranges::any_of(machine_.devices, [&](const Device& heard) {
      const auto* const interface = InterfaceOf(machine_, heard);
      return heard.serialNumber == device.serialNumber && interface != nullptr && interface->name == name;
    });
  }

  /// An address in the subnet that nobody known has; a device that is switched off may have it.
  std::optional<IP4> takeUnused(const Interface& interface) {
    constexpr unsigned kFirst = 10;  // routers like the lower ones
    auto address = std::bit_cast<IP4>(Bits(interface.address) & Bits(interface.subnetMask));
    const auto end = BroadcastOf(interface)[3];
    for (unsigned last = address[3] + kFirst; last < end; ++last) {
      address[3] = static_cast<unsigned char>(last);
      if (used_.insert(address).second) return address;
    }
    return {};
  }

  /// The command that gives the device an address in the subnet on which it was heard.
  std::string configure(const Device& device, const Interface* interface) {
    const auto address = interface != nullptr ? takeUnused(*interface) : std::nullopt;
    if (!address) return {};
    return "qvio config set " + ShellWord(device.serialNumber) + " --type " + std::to_string(device.type) +
           " --iface " + IP4ToString(interface->address) + " --ip " + IP4ToString(*address) + " --mask " +
           IP4ToString(interface->subnetMask) + " --gateway 0.0.0.0 --no-dhcp";
  }

  const Machine& machine_;
  const std::vector<Route> routes_;
  quorvind::IP4Set used_;
  std::map<std::string, std::string> owners_;  ///< serial numbers by address and port
};

}  // namespace

Findings CheckRoutes(const Machine& machine) {
  if (!machine.searchProblem.empty())
    return {{"network devices", State::Unknown, "not searched for: " + machine.searchProblem}};
  if (machine.devices.empty())
    return {{"network devices", State::Note, std::string("none has answered: ") + kWhatToCheck}};
  DeviceCheck check(machine);
  Findings findings;
  for (const auto& device : machine.devices) findings.push_back(check.check(device));
  return findings;
}

}  // namespace qvio_tool
