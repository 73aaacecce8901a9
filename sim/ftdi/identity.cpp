#include "sim/ftdi/identity.h"

#include <numeric>

namespace qvsim {
namespace {

constexpr char kStart = '\xA4';
constexpr std::size_t kHeader = 3;
constexpr char kQuestion = '\x01';
constexpr char kAnswer = '\x81';

uint8_t Sum(std::string_view bytes) {
  return std::accumulate(bytes.begin(), bytes.end(), uint8_t{0}, [](uint8_t sum, char byte) {
    return static_cast<uint8_t>(sum + static_cast<uint8_t>(byte));
  });
}

std::string Frame(std::string_view content) {
  const auto length = content.size() + 1;
  std::string frame{kStart, static_cast<char>(length & 0xffU), static_cast<char>(length >> 8U)};
  frame += content;
  frame += static_cast<char>(-Sum(std::string_view(frame).substr(1)));
  return frame;
}

}  // namespace

std::string Identity::answer(std::string_view bytes) {
  std::string answers;
  while (!bytes.empty()) {
    if (frame_.empty() && bytes.front() != kStart) {
      const auto others = bytes.substr(0, bytes.find(kStart));
      answers += other_->answer(others);
      bytes.remove_prefix(others.size());
      continue;
    }
    bytes.remove_prefix(takeFrame(bytes));
    if (isComplete()) answers += answerFrame();
    if (isComplete()) frame_.clear();
  }
  return answers;
}

/// Takes what belongs to the frame; returns how many bytes that is.
std::size_t Identity::takeFrame(std::string_view bytes) {
  std::size_t taken = 0;
  for (; taken < bytes.size() && !isComplete(); ++taken) frame_ += bytes[taken];
  return taken;
}

bool Identity::isComplete() const {
  if (frame_.size() < kHeader) return false;
  const auto length = static_cast<uint8_t>(frame_[1]) | std::size_t{static_cast<uint8_t>(frame_[2])} << 8U;
  return frame_.size() >= kHeader + length;
}

std::string Identity::answerFrame() const {
  if (frame_ != Frame(std::string{kQuestion})) return {};
  return Frame(std::string{kAnswer, static_cast<char>(protocolId_)});
}

}  // namespace qvsim
