#include "doctor/chips.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "doctor/checks.h"
#include "io/ftdi/products.h"
#include "util/text.h"

namespace qvio_tool {
namespace {

constexpr const char* kDevices = "/sys/bus/usb/devices";
constexpr const char* kVendor = "0403";

constexpr const char* kReloadRules = " && sudo udevadm control --reload && sudo udevadm trigger";
constexpr const char* kOurRules = "sudo cmake --install build --component system";
constexpr const char* kAllowEveryone =
    R"(echo 'SUBSYSTEM=="usb", ATTR{idVendor}=="0403", MODE="0666"' | sudo tee /etc/udev/rules.d/70-ftdi.rules)";

/// The command that gives users access. The rules are for the products that the library knows.
std::string AllowUsers(const UsbChip& chip) {
  const bool isKnown = std::ranges::count(qvio::kProducts, chip.product, &qvio::Product::description) != 0;
  return std::string(isKnown ? kOurRules : kAllowEveryone) + kReloadRules;
}

std::string NodeOf(const Machine& machine, const std::string& folder) {
  const auto number = [&](const char* file) {
    return std::strtoul(machine.line(folder + file).c_str(), nullptr, 10);
  };
  std::array<char, 64> path{};
  std::snprintf(path.data(), path.size(), "/dev/bus/usb/%03lu/%03lu", number("/busnum"), number("/devnum"));
  return path.data();
}

/// Its interfaces have folders of their own, such as "1-2:1.0".
std::vector<std::string> InterfacesHeldByKernel(const Machine& machine, const std::string& chip) {
  std::vector<std::string> held;
  std::error_code ignored;
  for (const auto& entry : machine.entries(kDevices)) {
    if (!entry.starts_with(chip + ':')) continue;
    const auto driver =
        std::filesystem::read_symlink(machine.at(std::string(kDevices) + '/' + entry + "/driver"), ignored);
    if (driver.filename() == "ftdi_sio") held.push_back(entry);
  }
  return held;
}

std::string Unbind(const UsbChip& chip) {
  std::vector<std::string> commands;
  for (const auto& interface : chip.kernelHeld)
    commands.push_back("echo " + interface + " | sudo tee /sys/bus/usb/drivers/ftdi_sio/unbind");
  return cppu::Join(commands, ';');
}

Finding CheckChip(const Machine& machine, const UsbChip& chip) {
  if (chip.isSerialPort() && !HasFtdiLibrary(machine))
    return {chip.text, State::Note, "ftdi_sio makes it a serial port"};
  if (chip.isSerialPort() && !HasOwnDriver(machine))
    return {chip.text, State::Fault,
            "the kernel's ftdi_sio holds it: it works as a serial port, but not on usb: locators",
            Unbind(chip)};
  struct stat file {};
  if (::stat(machine.at(chip.node).c_str(), &file) != 0)
    return {chip.text, State::Fault, chip.node + " does not exist", "sudo udevadm trigger --action=add"};
  if (!machine.mayUse(chip.node)) return Forbidden(chip.text, chip.node, file, AllowUsers(chip));
  if (const auto holder = OpenerOf(chip.node, machine.at("/proc"))) return Held(chip.text, *holder);
  return {chip.text, State::Ok, "free"};
}

}  // namespace

std::vector<UsbChip> ChipsOf(const Machine& machine) {
  std::vector<UsbChip> chips;
  for (const auto& name : machine.entries(kDevices)) {
    const auto folder = std::string(kDevices) + '/' + name;
    if (machine.line(folder + "/idVendor") != kVendor) continue;
    const auto product = machine.line(folder + "/product");
    const auto text = cppu::Join(std::vector{name, product, machine.line(folder + "/serial")}, ' ');
    chips.push_back({name, std::string(cppu::Trim(text)), product, NodeOf(machine, folder),
                     InterfacesHeldByKernel(machine, name)});
  }
  return chips;
}

Findings CheckUsbChips(const Machine& machine) {
  if (!machine.has(kDevices)) return {{"USB", State::Unknown, "this system shows no USB bus in /sys"}};
  Findings findings;
  for (const auto& chip : ChipsOf(machine)) findings.push_back(CheckChip(machine, chip));
  if (findings.empty()) findings.push_back({"USB", State::Ok, "no FTDI chip is plugged in"});
  return findings;
}

}  // namespace qvio_tool
