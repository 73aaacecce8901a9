#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace qvio_tool {

/// Rows in columns under a line of headings.
class Table {
 public:
  using Row = std::vector<std::string>;

  explicit Table(const Row& headings) { add(headings); }

  /// The cells may hold any bytes; they are shown harmlessly.
  void add(const Row& cells);

  /// The lines. With a width they are cut to it: the last column shrinks first, then the widest.
  [[nodiscard]] std::string text(std::optional<std::size_t> width) const;

  /// Prints on standard output, cut to the width if that is a terminal.
  void print() const;

 private:
  [[nodiscard]] std::vector<std::size_t> fittingWidths(std::optional<std::size_t> width) const;

  std::vector<Row> rows_;
  std::vector<std::size_t> widths_;  ///< of the columns, uncut
};

}  // namespace qvio_tool
