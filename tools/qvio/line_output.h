#pragma once

#include <poll.h>

#include <string>
#include <string_view>

namespace qvio_tool {

/// Standard output for a poll loop: lines are written as soon as it takes them, and a reader that has stopped
/// reading does not stop the loop.
class LineOutput {
 public:
  void add(std::string_view line) { waiting_ += line; }

  /// Writes what can be written now. Throws CommandFailure.
  void write();

  /// What to wait for.
  [[nodiscard]] pollfd entry() const;

  /// Whether nobody reads any more, by what the poll has given.
  [[nodiscard]] static bool isDead(const pollfd& entry);

 private:
  std::string waiting_;
};

}  // namespace qvio_tool
