// Interfaces, UDP ports, multicast and receive buffers: what discovery needs.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "device/search.h"
#include "doctor/checks.h"
#include "nd/network_socket.h"
#include "util/text.h"

namespace qvio_tool {
namespace {

using quorvind::Interface;

constexpr const char* kNetworks = "/sys/class/net/";

/// A receive buffer counts whole packet buffers, and the system doubles its limit for that reason.
constexpr std::size_t kBufferOfAnswer = 2304 / 2;

std::string NameOf(const Interface& interface) {
  return interface.name + ' ' + quorvind::IP4ToString(interface.address);
}

bool LacksCarrier(const Machine& machine, const std::string& name) {
  return machine.line(kNetworks + name + "/carrier") == "0";
}

/// The interfaces behind which there is hardware. /proc knows those of this network namespace, whose number
/// of bytes follow; /sys may show those of another.
std::vector<std::string> Hardware(const Machine& machine) {
  std::vector<std::string> names;
  std::ifstream file(machine.at("/proc/net/dev"));
  for (std::string line; std::getline(file, line);) {
    const std::string name(cppu::Trim(line.substr(0, line.find(':'))));
    if (machine.has(kNetworks + name + "/device")) names.push_back(name);
  }
  return names;
}

/// An interface of the machine that discovery cannot use.
Finding UnusableInterface(const Machine& machine, const std::string& name, State state) {
  constexpr unsigned long kUp = 1;
  const auto flags = std::strtoul(machine.line(kNetworks + name + "/flags").c_str(), nullptr, 16);
  if ((flags & kUp) == 0) return {name, state, "is down", "sudo ip link set " + ShellWord(name) + " up"};
  return {name, state, "has no IPv4 address; give it one in the subnet of the devices",
          "sudo ip address add 192.168.0.2/24 broadcast + dev " + ShellWord(name)};
}

struct UdpSocket {
  unsigned long port;
  std::string inode;
};

/// Lines look like "5: 00000000:FE57 00000000:0000 07 00000000:00000000 00:00000000 00000000 0 0 4711 2 ...".
void ReadUdpSockets(const std::filesystem::path& path, std::vector<UdpSocket>& sockets) {
  constexpr std::size_t kLocal = 1;
  constexpr std::size_t kInode = 9;
  std::ifstream file(path);
  std::string line;
  for (std::getline(file, line); std::getline(file, line);) {
    std::istringstream in(line);
    const std::vector<std::string> words(std::istream_iterator<std::string>(in), {});
    if (words.size() <= kInode) continue;
    const auto port = words[kLocal].substr(std::min(words[kLocal].size(), words[kLocal].find(':') + 1));
    sockets.push_back({std::strtoul(port.c_str(), nullptr, 16), words[kInode]});
  }
}

/// Programs that have the port open, by process id; those of other users may stay unknown. A socket of IPv6
/// can hold the port of IPv4 too.
std::map<std::string, Process> HoldersOf(const Machine& machine, uint16_t port) {
  std::vector<UdpSocket> sockets;
  for (const auto* const file : {"/proc/net/udp", "/proc/net/udp6"})
    ReadUdpSockets(machine.at(file), sockets);
  std::map<std::string, Process> holders;
  for (const auto& socket : sockets) {
    if (socket.port != port) continue;
    if (const auto holder = OpenerOf("socket:[" + socket.inode + "]", machine.at("/proc")))
      holders.try_emplace(holder->id, *holder);
  }
  return holders;
}

Finding CheckPort(const Machine& machine, uint16_t port) {
  const auto subject = "UDP " + std::to_string(port);
  const auto problem = machine.bindProblem(port);
  const auto holders = HoldersOf(machine, port);
  std::string names;
  for (const auto& [id, holder] : holders) names += (names.empty() ? ": " : ", ") + holder.text();
  if (problem.empty())
    return {subject, State::Ok, holders.empty() ? "free" : "shared with other programs" + names};
  return {subject, State::Fault, problem + names,
          holders.size() == 1 ? EndOf(holders.begin()->second)
                              : "sudo ss -ulpn 'sport = :" + std::to_string(port) + "' # shows who holds it"};
}

}  // namespace

Findings CheckInterfaces(const Machine& machine) {
  const auto works = [&](const Interface& interface) { return !LacksCarrier(machine, interface.name); };
  const auto state = std::ranges::any_of(machine.interfaces, works) ? State::Note : State::Fault;
  Findings findings;
  for (const auto& interface : machine.interfaces) {
    if (works(interface)) {
      findings.push_back({NameOf(interface), State::Ok, "can be searched"});
    } else {
      findings.push_back({NameOf(interface), state, "has no link: is the cable plugged in at both ends?"});
    }
  }
  for (const auto& name : Hardware(machine)) {
    const auto isIt = [&](const Interface& interface) { return interface.name == name; };
    if (std::ranges::none_of(machine.interfaces, isIt))
      findings.push_back(UnusableInterface(machine, name, state));
  }
  if (findings.empty()) findings.push_back({"interfaces", State::Fault, kNoInterface});
  return findings;
}

Findings CheckUdpPorts(const Machine& machine) {
  return {CheckPort(machine, quorvind::kMulticastPort), CheckPort(machine, quorvind::kBroadcastPort)};
}

Findings CheckMulticast(const Machine& machine) {
  constexpr unsigned long kMulticast = 0x1000;
  Findings findings;
  for (const auto& interface : machine.interfaces) {
    const auto problem = machine.multicastProblem(interface);
    const auto flags = machine.line(kNetworks + interface.name + "/flags");
    const bool isOff = !flags.empty() && (std::strtoul(flags.c_str(), nullptr, 16) & kMulticast) == 0;
    if (isOff) {
      findings.push_back({NameOf(interface), State::Fault, "multicast is switched off",
                          "sudo ip link set " + ShellWord(interface.name) + " multicast on"});
    } else if (!problem.empty()) {
      findings.push_back({NameOf(interface), State::Fault, problem,
                          "sudo nft list ruleset # or iptables-save: look for a rule that drops multicast"});
    } else {
      findings.push_back({NameOf(interface), State::Ok, "multicast comes back"});
    }
  }
  if (findings.empty())
    findings.push_back({"multicast", State::Unknown, "there is no interface to try it on"});
  return findings;
}

Findings CheckReceiveBuffer(const Machine& machine) {
  const std::string name = "net.core.rmem_max";
  const auto line = machine.line("/proc/sys/net/core/rmem_max");
  if (line.empty()) return {{name, State::Unknown, "cannot be read"}};
  const auto holds = std::strtoul(line.c_str(), nullptr, 10) / kBufferOfAnswer;
  const auto text = line + " bytes hold the answers of " + std::to_string(holds) +
                    " devices that answer at once; " + std::to_string(machine.devices.size()) + " answered";
  if (holds >= machine.devices.size() && holds > 0) return {{name, State::Ok, text}};
  return {
      {name, State::Fault, text, "sudo sysctl -w " + name + '=' + std::to_string(quorvind::kReceiveBuffer)}};
}

}  // namespace qvio_tool
