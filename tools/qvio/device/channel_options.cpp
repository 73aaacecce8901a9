#include "device/channel_options.h"

#include <sstream>

#include "device/failure_text.h"
#include "device/search.h"
#include "options/locator.h"
#include "options/option_sets.h"
#include "options/options_map.h"
#include "terminal/failure.h"
#include "terminal/text.h"
#include "util/failure.h"

namespace qvio_tool {
namespace {

std::string Given(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) text += line + '\n';
  return text;
}

/// The library skips an `iface` of another kind, such as the name of a network card.
void RequireInterfaces(const std::string& text) {
  const cppu::OptionsMap options(text);
  for (const auto& item : options.items()) {
    if (item.key == "iface" && item.value != InterfaceText(item.value))
      throw CommandFailure("not network:ADDRESS: iface " + OneLine(item.value), WrongUsage);
  }
}

}  // namespace

std::string ChannelOptions::text() const {
  auto text = Given(lines);
  if (!locator.starts_with("network:sn:")) return text;
  if (!value("iface") && ifaces.empty()) text += "iface network:all\n";
  for (const auto& iface : ifaces) text += "iface " + InterfaceText(iface) + '\n';
  // The first line with a key counts, so that a discovery-timeout of --option wins.
  return text + "discovery-timeout " + std::to_string(searchMs) + '\n';
}

std::optional<std::string> ChannelOptions::value(std::string_view key) const {
  const cppu::OptionsMap options(Given(lines));
  const auto* const item = options.find(key);
  return item != nullptr ? std::optional(item->value) : std::nullopt;
}

void ChannelOptions::requireSound() const try {
  const auto type = qvio::ReadLocator(locator).interfaceType;
  qvio::CheckTypedOptions(type, Given(lines));
  if (type == QV_IO_INTERFACE_NETWORK) RequireInterfaces(Given(lines));
} catch (const qvio::Failure& failure) {
  throw CommandFailure(WithHint(OneLine(failure.what()), kLocatorForms), WrongUsage);
} catch (const qvio::OptionsError& error) {
  throw CommandFailure(OneLine(error.what()), WrongUsage);
}

void ChannelOptions::addTo(CLI::App& command) {
  command.add_option("locator", locator, "The device, as serial:PATH or network:HOST:PORT")->required();
  command.add_option("-o,--option", lines, "Option for the library, as \"KEY VALUE\"; may be repeated")
      ->take_all()
      ->allow_extra_args(false);
  command
      .add_option(
          "--iface", ifaces,
          "For network:sn:SERIAL: address of a local interface to search on; may be repeated; default all")
      ->take_all()
      ->allow_extra_args(false);
  command.add_option("--timeout", searchMs, "Milliseconds for that search; it ends with the device's answer")
      ->capture_default_str();
  command.add_flag("--hex", hex, "Read and print bytes as hexadecimal");
  command
      .add_option_function<std::string>(
          "--eol", [this](const std::string& word) { eol = kLineEnds.at(word); },
          "Line end to send after each line: none, lf, cr or crlf; default lf")
      ->check(CLI::IsMember(kLineEnds));
}

}  // namespace qvio_tool
