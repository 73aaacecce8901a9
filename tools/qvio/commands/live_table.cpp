#include "commands/live_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "device/listing.h"
#include "terminal/output.h"
#include "terminal/time_text.h"

namespace qvio_tool {
namespace {

std::size_t RowsOfTerminal() {
  winsize size{};
  constexpr std::size_t kUsual = 24;
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : kUsual;
}

}  // namespace

std::string LiveTable::drawing() const {
  constexpr std::size_t kOtherRows = 3;  // title, headings, how many more
  const auto room = std::max(RowsOfTerminal(), kOtherRows + 1) - kOtherRows;
  Table table({"STATE", "SINCE", "LOCATOR", "ADDRESS", "INTERFACE", "INFO"});
  std::size_t shown = 0;
  for (const auto& [device, report] : reports_) {
    if (shown++ == room) break;
    table.add({NameOf(report.change), LocalTime(report.time), device.locator,
               device.host + ':' + std::to_string(device.port), IfaceAddress(device), device.info});
  }
  std::string text = "\x1b[H\x1b[J" + std::to_string(reports_.size()) + " devices; Ctrl-C leaves\n";
  if (!reports_.empty()) text += table.text();
  if (reports_.size() > room) text += "... and " + std::to_string(reports_.size() - room) + " more\n";
  return text;
}

}  // namespace qvio_tool
