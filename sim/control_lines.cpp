#include "sim/control_lines.h"

#include <array>
#include <sstream>
#include <utility>

#include "util/lookup.h"

namespace qvsim {
namespace {

using Change = bool (*)(ControllerGroup& group, const std::string& serialNumber);

constexpr std::array<std::pair<std::string_view, Change>, 6> kChanges{
    {{"available on", [](auto& group, const auto& serial) { return group.setAvailable(serial, true); }},
     {"available off", [](auto& group, const auto& serial) { return group.setAvailable(serial, false); }},
     {"leave", [](auto& group, const auto& serial) { return group.leave(serial); }},
     {"vanish", [](auto& group, const auto& serial) { return group.vanish(serial); }},
     {"return", [](auto& group, const auto& serial) { return group.comeBack(serial); }},
     {"port", [](auto& group, const auto& serial) { return group.changePort(serial); }}}};

}  // namespace

std::string Control(ControllerGroup& group, std::string_view line) {
  std::istringstream words{std::string(line)};
  std::string verb;
  std::string serialNumber;
  std::string argument;
  std::string rest;
  words >> verb >> serialNumber >> argument >> rest;
  if (verb.empty()) return {};
  const auto* const change = cppu::Lookup(kChanges, argument.empty() ? verb : verb + ' ' + argument);
  if (change == nullptr || serialNumber.empty() || !rest.empty())
    return "not understood: " + std::string(line);
  return (*change)(group, serialNumber) ? "" : "no controller has the serial number " + serialNumber;
}

}  // namespace qvsim
