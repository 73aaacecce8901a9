#include "terminal/received_text.h"

#include <utility>

#include "terminal/text.h"

namespace qvio_tool {

std::string ReceivedText::add(std::string_view bytes, Clock::time_point now) {
  std::string lines;
  while (!bytes.empty()) {
    if (alreadyEnded_.find(bytes.front()) != std::string_view::npos) {
      takeEnd(bytes);
    } else {
      lines += takeLine(bytes, now);
    }
  }
  return lines;
}

/// The text up to the line end, with a line feed; empty when the line end is still to come.
std::string ReceivedText::takeLine(std::string_view& bytes, Clock::time_point now) {
  alreadyEnded_ = {};
  if (rest_.empty()) firstByte_ = now;
  const auto end = bytes.find_first_of("\r\n");
  rest_ += bytes.substr(0, end);
  bytes.remove_prefix(std::min(end, bytes.size()));
  if (bytes.empty()) return rest_.size() > kLongestLine ? takeRest() : "";
  takeEnd(bytes);
  return Printable(std::exchange(rest_, {})) + '\n';
}

/// Drops one character of a line end.
void ReceivedText::takeEnd(std::string_view& bytes) {
  alreadyEnded_ = bytes.front() == '\r' ? "\n" : "";
  bytes.remove_prefix(1);
}

cppu::Deadline ReceivedText::due() const {
  return rest_.empty() ? cppu::Deadline{} : cppu::Deadline(firstByte_ + kWholeLine);
}

std::string ReceivedText::takeRest() {
  if (rest_.empty()) return {};
  alreadyEnded_ = "\r\n";
  return Printable(std::exchange(rest_, {})) + '\n';
}

}  // namespace qvio_tool
