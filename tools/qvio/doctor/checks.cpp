#include "doctor/checks.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "device/permissions.h"

namespace qvio_tool {
namespace {

struct Check {
  const char* name;
  Findings (*run)(const Machine& machine);
};

constexpr std::array kChecks{
    Check{"library", CheckLibrary},       Check{"ftdi-libraries", CheckFtdiLibraries},
    Check{"usb-chips", CheckUsbChips},    Check{"serial-ports", CheckSerialPorts},
    Check{"interfaces", CheckInterfaces}, Check{"udp-ports", CheckUdpPorts},
    Check{"multicast", CheckMulticast},   Check{"firewall", CheckFirewall},
    Check{"routes", CheckRoutes},         Check{"receive-buffer", CheckReceiveBuffer}};

}  // namespace

Findings Diagnose(const Machine& machine) {
  Findings all;
  for (const auto& check : kChecks) {
    auto findings = check.run(machine);
    for (auto& finding : findings) finding.check = check.name;
    std::ranges::move(findings, std::back_inserter(all));
  }
  return all;
}

Finding Forbidden(const std::string& subject, const std::string& path, const struct stat& file,
                  const std::string& fix) {
  const auto joinGroup = "sudo usermod -aG " + ShellWord(GroupOf(file)) + " \"$USER\" # then log in again";
  return {subject, State::Fault, ForbiddenHint(path, file), GroupMayUse(file) ? joinGroup : fix};
}

Finding Held(const std::string& subject, const Process& holder) {
  return {subject, State::Fault, holder.text() + " has it open", EndOf(holder)};
}

std::string EndOf(const Process& process) { return process.id == "1" ? "" : "kill " + process.id; }

std::string ShellWord(const std::string& text) {
  const auto isPlain = [](unsigned char c) {
    return c < 0x80 && (std::isalnum(c) != 0 ||
                        std::string_view("-_./:").find(static_cast<char>(c)) != std::string_view::npos);
  };
  if (!text.empty() && std::ranges::all_of(text, isPlain)) return text;
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return word + "'";
}

}  // namespace qvio_tool
