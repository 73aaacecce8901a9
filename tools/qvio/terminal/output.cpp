#include "terminal/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "terminal/failure.h"
#include "terminal/text.h"

namespace qvio_tool {

std::size_t WriteSome(int fd, std::string_view bytes) {
  const auto written = cppu::Uninterrupted([&] { return ::write(fd, bytes.data(), bytes.size()); });
  if (written < 0 && errno == EAGAIN) return 0;
  if (written < 0) throw CommandFailure(std::string("cannot write: ") + std::strerror(errno));
  return static_cast<std::size_t>(written);
}

bool WaitWritable(int fd, cppu::Deadline deadline) {
  pollfd entry{fd, POLLOUT, 0};
  return cppu::PollUntil({&entry, 1}, deadline) > 0 && (entry.revents & POLLOUT) != 0;
}

void WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = WriteSome(fd, bytes);
    if (written == 0) WaitWritable(fd, {});
    bytes.remove_prefix(written);
  }
}

Table::Table(const Row& headings) : table_(::scols_new_table(), ::scols_unref_table) {
  if (!table_) throw std::bad_alloc();
  ::scols_table_enable_noencoding(table_.get(), 1);  // OneLine knows more characters that are not harmless
  ::scols_table_enable_minout(table_.get(), 1);      // no blanks at the ends of lines
  ::scols_table_set_column_separator(table_.get(), "  ");
  for (const auto& heading : headings)
    ::scols_table_new_column(table_.get(), heading.c_str(), 0,
                             &heading == &headings.back() ? SCOLS_FL_TRUNC : 0);
}

void Table::add(const Row& cells) {
  auto* const line = ::scols_table_new_line(table_.get(), nullptr);
  for (std::size_t i = 0; i < cells.size(); ++i)
    if (::scols_line_set_data(line, i, OneLine(cells[i]).c_str()) != 0) throw std::bad_alloc();
}

std::string Table::text() const {
  if (::isatty(STDOUT_FILENO) != 0) ::scols_table_set_termforce(table_.get(), SCOLS_TERMFORCE_ALWAYS);
  char* text = nullptr;
  if (::scols_print_table_to_string(table_.get(), &text) != 0) throw std::bad_alloc();
  const std::unique_ptr<char, void (*)(void*)> owner(text, std::free);
  return std::string(text) + '\n';
}

}  // namespace qvio_tool
