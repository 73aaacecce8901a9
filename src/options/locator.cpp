#include "options/locator.h"

#include <array>
#include <string>
#include <utility>

#include "quorvio/quorvio.h"
#include "util/failure.h"
#include "util/text.h"

namespace qvio {

std::optional<uint32_t> InterfaceTypeOf(std::string_view locator) {
  static constexpr std::array<std::pair<std::string_view, uint32_t>, 3> kWords{
      {{"usb", QV_IO_INTERFACE_USB},
       {"network", QV_IO_INTERFACE_NETWORK},
       {"serial", QV_IO_INTERFACE_SERIAL}}};
  const auto colon = locator.find(':');
  if (colon == std::string_view::npos) return {};
  for (const auto& [word, type] : kWords) {
    if (locator.substr(0, colon) == word) return type;
  }
  return {};
}

uint32_t RequireInterfaceType(std::string_view locator) {
  const auto type = InterfaceTypeOf(locator);
  Require(type.has_value(), QV_IO_ERROR_INVALID_LOCATOR, "not a locator: \"%\"", {locator});
  return *type;
}

std::vector<std::string_view> LocatorFields(std::string_view locator) {
  auto fields = cppu::Split(locator, ':');
  std::erase(fields, std::string_view{});
  return fields;
}

NetworkLocatorFormat ReadNetworkLocatorFormat(std::string_view word) {
  if (word == "sn") return NetworkLocatorFormat::SerialNumber;
  if (word == "host") return NetworkLocatorFormat::Host;
  throw OptionsError("Unknown locator format: " + std::string(word));
}

}  // namespace qvio
