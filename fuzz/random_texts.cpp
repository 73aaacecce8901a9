#include "random_texts.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "options/locator.h"
#include "quorvio/quorvio.h"

namespace qvfuzz {
namespace {

constexpr std::array<std::string_view, 13> kLocatorStarts{"usb:ix:0",
                                                          "usb:id:4000000002",
                                                          "usb:",
                                                          "usb:sn:",
                                                          "usb:ix:",
                                                          "usb:id:",
                                                          "network:",
                                                          "network:sn:",
                                                          "network:sn:5000",
                                                          "network:127.0.0.1:",
                                                          "network:localhost:",
                                                          "serial:",
                                                          ""};

constexpr std::array<std::string_view, 40> kLines{"strict",
                                                  "iface-type usb",
                                                  "iface-type network",
                                                  "iface-type serial",
                                                  "iface-type all",
                                                  "iface network:127.0.0.1",
                                                  "iface network:all",
                                                  "iface network:0.0.0.0",
                                                  "iface network:127.0.0.77",
                                                  "discovery-iface network:127.0.0.1",
                                                  "discovery-iface network:all",
                                                  "discovery-iface network:none",
                                                  "locator-format-network host",
                                                  "locator-format-network sn",
                                                  "locator-format-usb id",
                                                  "only-locator",
                                                  "only-name",
                                                  "only-network-host",
                                                  "include-all",
                                                  "include-locator",
                                                  "include-protocol-id",
                                                  "include-usb-id",
                                                  "include-sn",
                                                  "include-id",
                                                  "include-ds",
                                                  "include-usb-vid on",
                                                  "canonical-locator",
                                                  "force-rescan",
                                                  "product-name Quorvi DRV2",
                                                  "usb-pid 24577",
                                                  "find-only-available off",
                                                  "find-protocol-id 1",
                                                  "find-device-sn 5000",
                                                  "baudrate 115200",
                                                  "xonxoff 0",
                                                  "health-check 49",
                                                  "tx-timeout 10",
                                                  "ftdi-latency 256",
                                                  "ftdi-flow-control dtrdsr",
                                                  "port 0"};

std::string JoinedLines(Script& script) {
  std::string text;
  for (auto lines = script.below(6); lines > 0; --lines) {
    const auto choice = script.below(kLines.size() + 4);
    text += choice < kLines.size() ? kLines[choice] : script.text();
    text += '\n';
  }
  return text.substr(0, text.find('\0'));
}

}  // namespace

std::string RandomTexts::locator(Script& script) const {
  std::string text(script.oneOf(kLocatorStarts));
  text += script.text();
  text.resize(std::min(text.find('\0'), text.size()));
  uint32_t kind = 0;
  QV_IO_GetLocatorInterfaceType(&kind, text.c_str());
  if (kind == QV_IO_INTERFACE_SERIAL) text.insert(std::string_view("serial:").size(), "/dev/null/");
  if (kind == QV_IO_INTERFACE_NETWORK && !networkIsPrivate_) return "network:127.0.0.1:1";
  return text;
}

std::string RandomTexts::options(Script& script) {
  auto text = JoinedLines(script);
  if (text.find("network:") == std::string::npos) return text;
  return searches_-- > 0 ? text : "";
}

std::string RandomTexts::searchOptions(Script& script) {
  const auto text = options(script);
  const bool maySearch = text.find("network:") != std::string::npos;
  return maySearch ? "discovery-timeout 1\n" + text : text;  // the first line with a key counts
}

}  // namespace qvfuzz
