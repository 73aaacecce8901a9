#pragma once

#include <libsmartcols.h>
#include <poll.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qvio_tool {

/// Writes all to standard output or standard error. Throws CommandFailure when that fails.
void WriteAll(int fd, std::string_view bytes);

/// Standard output for a poll loop: lines are written as soon as it takes them, and a reader that has stopped
/// reading does not stop the loop.
class LineOutput {
 public:
  void add(std::string_view line) { waiting_ += line; }

  /// Writes as much as standard output takes now. Throws CommandFailure.
  void write();

  /// The entry for the poll.
  [[nodiscard]] pollfd entry() const;

  /// Whether the reader is gone, by the result of the poll.
  [[nodiscard]] static bool isDead(const pollfd& entry);

 private:
  std::string waiting_;
};

/// Rows in columns under a line of headings.
class Table {
 public:
  using Row = std::vector<std::string>;

  explicit Table(const Row& headings);

  /// The cells may hold any bytes; they are printed as OneLine gives them.
  void add(const Row& cells);

  /// Prints on standard output. On a terminal the last column is cut at the right edge. Throws
  /// CommandFailure.
  void print() const;

 private:
  std::unique_ptr<libscols_table, void (*)(libscols_table*)> table_;
};

}  // namespace qvio_tool
