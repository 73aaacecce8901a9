#include "sim/output_queue.h"

#include <utility>

namespace qvsim {

void OutputQueue::addAnswer(std::string bytes) {
  if (bytes.empty()) return;
  answerBytes_ += bytes.size();
  pieces_.push_back({std::make_shared<const std::string>(std::move(bytes)), true, 0});
}

void OutputQueue::addSending(SharedBytes bytes) {
  if (!bytes->empty()) pieces_.push_back({std::move(bytes), false, 0});
}

std::string_view OutputQueue::next() const {
  if (pieces_.empty()) return {};
  const auto& piece = pieces_.front();
  return std::string_view(*piece.bytes).substr(piece.written);
}

void OutputQueue::remove(std::size_t count) {
  if (count == 0) return;
  auto& piece = pieces_.front();
  piece.written += count;
  if (piece.isAnswer) answerBytes_ -= count;
  if (piece.written == piece.bytes->size()) pieces_.pop_front();
}

}  // namespace qvsim
