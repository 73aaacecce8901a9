#include "options/locator.h"

#include <array>
#include <utility>

#include "quorvio/quorvio.h"
#include "util/failure.h"
#include "util/lookup.h"
#include "util/text.h"

namespace qvio {
namespace {

constexpr std::array<std::pair<std::string_view, uint32_t>, 3> kInterfaceWords{
    {{"usb", QV_IO_INTERFACE_USB}, {"network", QV_IO_INTERFACE_NETWORK}, {"serial", QV_IO_INTERFACE_SERIAL}}};

}  // namespace

Locator ReadLocator(std::string_view text) {
  auto fields = cppu::Split(text, ':');
  const auto* const interfaceType = cppu::Lookup(kInterfaceWords, fields.front());
  Require(fields.size() > 1 && interfaceType != nullptr, QV_IO_ERROR_INVALID_LOCATOR, "not a locator: \"%\"",
          {text});
  // Runs of ":" separate once, so that "network::5000" names the host 5000.
  fields.erase(fields.begin());
  std::erase(fields, std::string_view{});
  return {std::string(text), *interfaceType, {fields.begin(), fields.end()}};
}

NetworkLocatorFormat ReadNetworkLocatorFormat(std::string_view word) {
  if (word == "sn") return NetworkLocatorFormat::SerialNumber;
  if (word == "host") return NetworkLocatorFormat::Host;
  throw OptionsError("Unknown locator format: " + std::string(word));
}

}  // namespace qvio
