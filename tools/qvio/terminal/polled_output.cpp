#include "terminal/polled_output.h"

#include <fcntl.h>

#include <array>
#include <climits>

#include "terminal/output.h"

namespace qvio_tool {
namespace {

/// The terminal of the descriptor, non-blocking; none if it is not a terminal or cannot be opened.
cppu::UniqueFd OpenTerminal(int fd) {
  std::array<char, PATH_MAX> name{};
  if (::ttyname_r(fd, name.data(), name.size()) != 0) return {};
  return cppu::UniqueFd(::open(name.data(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
}

/// A write of PIPE_BUF bytes to a pipe that is writable does not block.
std::size_t PieceFor(int fd) {
  const int flags = ::fcntl(fd, F_GETFL);
  return flags >= 0 && (flags & O_NONBLOCK) != 0 ? std::string::npos : PIPE_BUF;
}

}  // namespace

PolledOutput::PolledOutput(int fd)
    : own_(OpenTerminal(fd)), fd_(own_ ? own_.get() : fd), piece_(PieceFor(fd_)) {}

void PolledOutput::add(std::string_view bytes) {
  bytes_.erase(0, written_);
  written_ = 0;
  bytes_ += bytes;
}

void PolledOutput::write() {
  while (!isEmpty() && WaitWritable(fd_, std::chrono::steady_clock::now())) {
    const auto taken = WriteSome(fd_, std::string_view(bytes_).substr(written_, piece_));
    if (taken == 0) return;
    written_ += taken;
  }
}

void PolledOutput::writeUntil(cppu::Deadline deadline) {
  while (!isEmpty() && WaitWritable(fd_, deadline)) write();
}

pollfd PolledOutput::entry() const { return {fd_, static_cast<short>(isEmpty() ? 0 : POLLOUT), 0}; }

bool PolledOutput::isDead(const pollfd& entry) {
  return (entry.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
}

}  // namespace qvio_tool
