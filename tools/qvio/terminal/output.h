#pragma once

#include <libsmartcols.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "util/system_call.h"

namespace qvio_tool {

/// Writes all to standard output or standard error. Throws CommandFailure when that fails.
void WriteAll(int fd, std::string_view bytes);

/// Writes once, and returns how many bytes were taken; 0 if a non-blocking descriptor takes none now. Throws
/// CommandFailure.
std::size_t WriteSome(int fd, std::string_view bytes);

/// Waits until bytes can be written. False at the deadline, and when the reader is gone.
bool WaitWritable(int fd, cppu::Deadline deadline);

/// Rows in columns under a line of headings.
class Table {
 public:
  using Row = std::vector<std::string>;

  explicit Table(const Row& headings);

  /// The cells may hold any bytes; they are printed as OneLine gives them.
  void add(const Row& cells);

  /// Each row with a line feed. Where standard output is a terminal the last column is cut at its right edge.
  [[nodiscard]] std::string text() const;

  /// Prints on standard output. Throws CommandFailure.
  void print() const { WriteAll(STDOUT_FILENO, text()); }

 private:
  std::unique_ptr<libscols_table, void (*)(libscols_table*)> table_;
};

}  // namespace qvio_tool
