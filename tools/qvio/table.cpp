#include "table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>

#include "output.h"
#include "text_codec.h"

namespace qvio_tool {
namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 4;  // one character and "..."

/// None when standard output is no terminal or does not tell.
std::optional<std::size_t> TerminalWidth() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return {};
  return size.ws_col;
}

}  // namespace

void Table::add(const Row& cells) {
  auto& row = rows_.emplace_back();
  widths_.resize(std::max(widths_.size(), cells.size()));
  for (std::size_t i = 0; i < cells.size(); ++i) {
    row.push_back(OneLine(cells[i]));
    widths_[i] = std::max(widths_[i], ColumnsOf(row[i]));
  }
}

std::vector<std::size_t> Table::fittingWidths(std::optional<std::size_t> width) const {
  auto widths = widths_;
  const auto needed = std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
  if (!width || needed <= *width) return widths;
  std::size_t excess = needed - *width;
  const auto taken = std::min(excess, widths.back() - std::min(widths.back(), kNarrowest));
  widths.back() -= taken;
  for (excess -= taken; excess > 0; --excess) {
    auto& widest = *std::ranges::max_element(widths);
    if (widest <= kNarrowest) break;
    --widest;
  }
  return widths;
}

std::string Table::text(std::optional<std::size_t> width) const {
  const auto widths = fittingWidths(width);
  std::string lines;
  for (const auto& row : rows_) {
    std::string line;
    std::size_t columns = 0;  // where the next cell begins
    std::size_t reached = 0;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const auto cell = CutToColumns(row[i], widths[i]);
      if (!cell.empty()) {
        line.append(columns - reached, ' ').append(cell);
        reached = columns + ColumnsOf(cell);
      }
      columns += widths[i] + kGap;
    }
    lines += line + '\n';
  }
  return lines;
}

void Table::print() const { WriteAll(STDOUT_FILENO, text(TerminalWidth())); }

}  // namespace qvio_tool
