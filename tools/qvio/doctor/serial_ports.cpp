#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <fstream>

#include "doctor/checks.h"

namespace qvio_tool {
namespace {

constexpr const char* kPorts = "/sys/class/tty";

/// They send commands to ports that are plugged in. Their services have the same names.
constexpr std::array kProbers{"ModemManager", "brltty"};

/// A line with a device; the kernel also lists serial ports that a board might have, with type 0.
bool IsPort(const Machine& machine, const std::string& name) {
  const auto folder = std::string(kPorts) + '/' + name;
  return machine.has(folder + "/device") && machine.line(folder + "/type") != "0";
}

std::optional<Process> HolderOf(const Machine& machine, const std::string& node, const struct stat& file) {
  const auto opener = OpenerOf(node, machine.at("/proc"));
  return opener ? opener : LockHolder(file, machine.at("/proc"));
}

Finding CheckPort(const Machine& machine, const std::string& node) {
  struct stat file {};
  if (::stat(machine.at(node).c_str(), &file) != 0)
    return {node, State::Fault, "the kernel has the port, but the file is missing",
            "sudo udevadm trigger --action=add"};
  if (!machine.mayUse(node)) return Forbidden(node, node, file, "sudo chmod a+rw " + ShellWord(node));
  if (const auto holder = HolderOf(machine, node, file)) return Held(node, *holder);
  return {node, State::Ok, "free"};
}

/// udev marks the devices that modem managers must leave alone.
bool IsLeftAlone(const Machine& machine, const std::string& name) {
  std::ifstream marks(
      machine.at("/run/udev/data/c" + machine.line(std::string(kPorts) + '/' + name + "/dev")));
  for (std::string line; std::getline(marks, line);)
    if (line == "E:ID_MM_DEVICE_IGNORE=1" || line == "E:ID_MM_PORT_IGNORE=1") return true;
  return false;
}

Findings CheckProbers(const Machine& machine, const std::vector<std::string>& ports) {
  const bool isProbed = std::ranges::any_of(ports, [&](const std::string& port) {
    return (port.starts_with("ttyUSB") || port.starts_with("ttyACM")) && !IsLeftAlone(machine, port);
  });
  if (!isProbed) return {};
  Findings findings;
  for (const std::string prober : kProbers) {
    if (const auto process = ProcessNamed(prober, machine.at("/proc")))
      findings.push_back({process->text(), State::Note,
                          "may open a USB port and send to the device for seconds after it is plugged in",
                          "sudo systemctl disable --now " + prober});
  }
  return findings;
}

}  // namespace

Findings CheckSerialPorts(const Machine& machine) {
  auto ports = machine.entries(kPorts);
  std::erase_if(ports, [&](const std::string& name) { return !IsPort(machine, name); });
  if (ports.empty()) return {{"serial ports", State::Ok, "this machine has none"}};
  Findings findings;
  for (const auto& port : ports) findings.push_back(CheckPort(machine, "/dev/" + port));
  std::ranges::move(CheckProbers(machine, ports), std::back_inserter(findings));
  return findings;
}

}  // namespace qvio_tool
