#include "device/channel_options.h"

#include "device/failure_text.h"
#include "device/named_devices.h"
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

/// "/dev/ttyUSB0" for "serial:/dev/ttyUSB0", and "HOST:PORT" for "network:HOST:PORT".
std::string WithInterfaceWord(const std::string& locator) {
  if (locator.starts_with('/')) return std::string(kSerialWord) + locator;
  const auto colon = locator.find(':');
  const bool hasPort = colon != std::string::npos && colon > 0 && colon + 1 < locator.size() &&
                       locator.find_first_not_of("0123456789", colon + 1) == std::string::npos;
  uint32_t known = 0;
  QV_IO_GetLocatorInterfaceType(&known, locator.c_str());
  return hasPort && known == 0 ? "network:" + locator : locator;
}

}  // namespace

/// The command line comes first: the first line with a key counts.
void ChannelOptions::complete() {
  if (!baud.empty()) lines.insert(lines.begin(), "baudrate " + baud);
  if (const auto named = FindNamedDevice(locator)) {
    locator = named->locator;
    lines.insert(lines.end(), named->options.begin(), named->options.end());
    if (eolWord.empty()) eolWord = named->eol;
  }
  if (!eolWord.empty()) eol = kLineEnds.at(eolWord);
  locator = WithInterfaceWord(locator);
  requireSound();
}

std::string ChannelOptions::text() const {
  auto text = Given(lines);
  // Leaving waits for the attempt to open. The first line with a key counts, so that one of --option wins.
  if (reconnects && locator.starts_with("network:")) text += "connect-timeout 1000\n";
  if (!locator.starts_with("network:sn:")) return text;
  if (!value("iface") && ifaces.empty()) text += "iface network:all\n";
  for (const auto& iface : ifaces) text += "iface " + InterfaceText(iface) + '\n';
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
  for (const auto& iface : ifaces) InterfaceText(iface);
} catch (const qvio::Failure& failure) {
  throw CommandFailure(WithHint(OneLine(failure.what()), kLocatorForms), WrongUsage);
} catch (const qvio::OptionsError& error) {
  throw CommandFailure(OneLine(error.what()), WrongUsage);
}

void ChannelOptions::addTo(CLI::App& command) {
  command.add_option("locator", locator, kLocatorHelp)->required();
  addLinkTo(command);
  command.parse_complete_callback([this] { complete(); });
}

void ChannelOptions::addReconnectTo(CLI::App& command) {
  command.add_flag("-r,--reconnect", reconnects,
                   "Wait for a device that is gone or not there yet, and open it again");
}

void ChannelOptions::addLinkTo(CLI::App& command) {
  command.add_option("-b,--baud", baud, "Speed of a serial port or USB link, for -o \"baudrate N\"");
  command.add_option("-o,--option", lines, "Option for the library, as \"KEY VALUE\"; may be repeated")
      ->take_all()
      ->allow_extra_args(false);
  command
      .add_option(
          "-i,--iface", ifaces,
          "For network:sn:SERIAL: address of a local interface to search on; may be repeated; default all")
      ->take_all()
      ->allow_extra_args(false);
  command
      .add_option("-t,--timeout", searchMs, "Milliseconds for that search; it ends with the device's answer")
      ->capture_default_str();
  command.add_flag("-x,--hex", hex, "Read and print bytes as hexadecimal");
  command
      .add_option("-e,--eol", eolWord, "Line end to send after each line: none, lf, cr or crlf; default lf")
      ->check(CLI::IsMember(kLineEnds));
}

}  // namespace qvio_tool
