#include "sim/control_lines.h"

#include <functional>
#include <map>
#include <sstream>

namespace qvsim {
namespace {

using Change = std::function<bool(ControllerGroup&, const std::string& serialNumber)>;

const std::map<std::string, Change, std::less<>>& Changes() {
  static const std::map<std::string, Change, std::less<>> changes{
      {"available on", [](auto& group, const auto& serial) { return group.setAvailable(serial, true); }},
      {"available off", [](auto& group, const auto& serial) { return group.setAvailable(serial, false); }},
      {"leave", [](auto& group, const auto& serial) { return group.leave(serial); }},
      {"vanish", [](auto& group, const auto& serial) { return group.vanish(serial); }},
      {"return", [](auto& group, const auto& serial) { return group.comeBack(serial); }},
      {"port", [](auto& group, const auto& serial) { return group.changePort(serial); }}};
  return changes;
}

}  // namespace

std::string Control(ControllerGroup& group, std::string_view line) {
  std::istringstream words{std::string(line)};
  std::string verb;
  std::string serialNumber;
  std::string argument;
  std::string rest;
  words >> verb >> serialNumber >> argument >> rest;
  if (verb.empty()) return {};
  const auto change = Changes().find(argument.empty() ? verb : verb + ' ' + argument);
  if (change == Changes().end() || serialNumber.empty() || !rest.empty())
    return "not understood: " + std::string(line);
  return change->second(group, serialNumber) ? "" : "there is no controller " + serialNumber;
}

}  // namespace qvsim
