#pragma once

#include <poll.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "util/system_call.h"
#include "util/unique_fd.h"

namespace qvio_tool {

/// An output for a poll loop: bytes are written as soon as it takes them, and a reader that has stopped
/// reading does not stop the loop.
class PolledOutput {
 public:
  /// @param fd  a standard stream. Its mode, which other programs share, is not changed: a terminal is opened
  ///            once more. Below 0: nothing is to be added.
  explicit PolledOutput(int fd = STDOUT_FILENO);

  void add(std::string_view bytes);

  /// Whether all is written: the moment to add what may be long.
  [[nodiscard]] bool isEmpty() const { return written_ == bytes_.size(); }

  /// Whether less than kLimit is waiting. Whoever adds without end asks first.
  [[nodiscard]] bool hasRoom() const { return bytes_.size() - written_ < kLimit; }

  /// Writes as much as the output takes now. Throws CommandFailure.
  void write();

  /// Writes until all is written, or the deadline. Throws CommandFailure.
  void writeUntil(cppu::Deadline deadline);

  [[nodiscard]] int fd() const { return fd_; }

  /// The entry for the poll.
  [[nodiscard]] pollfd entry() const;

  /// Whether the other end is gone, by the result of the poll.
  [[nodiscard]] static bool isDead(const pollfd& entry);

 private:
  static constexpr std::size_t kLimit = std::size_t{128} << 10U;

  const cppu::UniqueFd own_;  ///< the terminal, if it is one
  const int fd_;
  const std::size_t piece_;  ///< so much a writable output takes without blocking
  std::string bytes_;
  std::size_t written_ = 0;  ///< bytes of bytes_
};

}  // namespace qvio_tool
