#include "random_texts.h"

#include <algorithm>
#include <string_view>

#include "options/locator.h"
#include "quorvio/quorvio.h"
#include "util/text.h"

namespace qvfuzz {
namespace {

// Lists, with "|" between the items.
constexpr std::string_view kLocatorStarts =
    "usb:ix:0|usb:id:4000000002|usb:|usb:sn:|usb:ix:|usb:id:|network:|network:sn:|network:sn:5000|"
    "network:127.0.0.1:|network:localhost:|serial:|";

constexpr std::string_view kLines =
    "strict|iface-type usb|iface-type network|iface-type serial|iface-type all|"
    "iface network:127.0.0.1|iface network:all|iface network:0.0.0.0|iface network:127.0.0.77|"
    "discovery-iface network:127.0.0.1|discovery-iface network:all|discovery-iface network:none|"
    "locator-format-network host|locator-format-network sn|locator-format-usb id|only-locator|"
    "only-name|only-network-host|include-all|include-locator|include-protocol-id|include-usb-id|"
    "include-sn|include-id|include-ds|include-usb-vid on|canonical-locator|force-rescan|"
    "product-name Quorvi DRV2|usb-pid 24577|find-only-available off|find-protocol-id 1|"
    "find-device-sn 5000|baudrate 115200|xonxoff 0|health-check 49|tx-timeout 10|ftdi-latency 256|"
    "ftdi-flow-control dtrdsr|port 0";

std::string JoinedLines(Decisions& decisions) {
  static const auto lines = cppu::Split(kLines, '|');
  std::string text;
  for (auto left = decisions.below(6); left > 0; --left) {
    const auto choice = decisions.below(lines.size() + 4);
    text += choice < lines.size() ? lines[choice] : decisions.text();
    text += '\n';
  }
  return text.substr(0, text.find('\0'));
}

}  // namespace

std::string RandomTexts::locator(Decisions& decisions) const {
  static const auto starts = cppu::Split(kLocatorStarts, '|');
  std::string text(decisions.oneOf(starts));
  text += decisions.text();
  text.resize(std::min(text.find('\0'), text.size()));
  uint32_t kind = 0;
  QV_IO_GetLocatorInterfaceType(&kind, text.c_str());
  if (kind == QV_IO_INTERFACE_SERIAL) text.insert(std::string_view("serial:").size(), "/dev/null/");
  if (kind == QV_IO_INTERFACE_NETWORK && !networkIsPrivate_) return "network:127.0.0.1:1";
  return text;
}

std::string RandomTexts::options(Decisions& decisions) {
  auto text = JoinedLines(decisions);
  if (text.find("network:") == std::string::npos) return text;
  return searches_-- > 0 ? text : "";
}

std::string RandomTexts::searchOptions(Decisions& decisions) {
  const auto text = options(decisions);
  const bool maySearch = text.find("network:") != std::string::npos;
  return maySearch ? "discovery-timeout 1\n" + text : text;  // the first line with a key counts
}

}  // namespace qvfuzz
