#include "terminal/received_text.h"

#include <algorithm>

#include "terminal/text.h"

namespace qvio_tool {
namespace {

constexpr std::size_t kBytesInRow = 16;

}  // namespace

std::string ReceivedText::add(std::string_view bytes, Clock::time_point now) {
  std::string lines;
  while (!bytes.empty()) {
    if (alreadyEnded_.find(bytes.front()) != std::string_view::npos) {
      takeEnd(bytes);
      continue;
    }
    alreadyEnded_ = {};
    if (rest_.empty()) {
      firstByte_ = now;
      if (prefix_) begin_ = prefix_();
    }
    lines += form_ == Form::Hex ? takeRow(bytes) : takeLine(bytes);
  }
  return lines;
}

/// The text up to the line end, with a line feed; empty when the line end is still to come.
std::string ReceivedText::takeLine(std::string_view& bytes) {
  const auto end = bytes.find_first_of("\r\n");
  rest_ += bytes.substr(0, end);
  bytes.remove_prefix(std::min(end, bytes.size()));
  if (bytes.empty()) return rest_.size() > kLongestLine ? takeRest() : "";
  takeEnd(bytes);
  return finishLine();
}

/// A row of bytes; empty when some are still to come.
std::string ReceivedText::takeRow(std::string_view& bytes) {
  const auto taken = bytes.substr(0, kBytesInRow - rest_.size());
  rest_ += taken;
  bytes.remove_prefix(taken.size());
  return rest_.size() == kBytesInRow ? finishLine() : "";
}

/// Drops one character of a line end.
void ReceivedText::takeEnd(std::string_view& bytes) {
  alreadyEnded_ = bytes.front() == '\r' ? "\n" : "";
  bytes.remove_prefix(1);
}

std::string ReceivedText::finishLine() {
  const auto bytes = std::exchange(rest_, {});
  const auto offset = std::exchange(offset_, offset_ + bytes.size());
  return begin_ + (form_ == Form::Hex ? HexRow(offset, bytes, kBytesInRow) : Printable(bytes)) + '\n';
}

cppu::Deadline ReceivedText::due() const {
  return rest_.empty() ? cppu::Deadline{} : cppu::Deadline(firstByte_ + kWholeLine);
}

std::string ReceivedText::takeRest() {
  if (rest_.empty()) return {};
  if (form_ == Form::Text) alreadyEnded_ = "\r\n";
  return finishLine();
}

}  // namespace qvio_tool
