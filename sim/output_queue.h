#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

namespace qvsim {

/// Bytes that many links may be sending at a time, held once.
using SharedBytes = std::shared_ptr<const std::string>;

/// What a link still has to write, in order: answers, and bytes that it was told to send.
class OutputQueue {
 public:
  void addAnswer(std::string bytes);

  /// Takes a share of the bytes, no copy.
  void addSending(SharedBytes bytes);

  [[nodiscard]] bool empty() const { return pieces_.empty(); }

  /// Bytes of answers, which a peer that reads nothing must not pile up. Bytes to send do not count.
  [[nodiscard]] std::size_t answerBytes() const { return answerBytes_; }

  /// What to write next; not empty unless the queue is.
  [[nodiscard]] std::string_view next() const;

  /// Takes off bytes that are written, at most as many as next() has.
  void remove(std::size_t count);

 private:
  struct Piece {
    SharedBytes bytes;
    bool isAnswer;
    std::size_t written;
  };

  std::deque<Piece> pieces_;
  std::size_t answerBytes_ = 0;
};

}  // namespace qvsim
