#include "line_output.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "result_text.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

bool IsWritable() {
  std::array<pollfd, 1> entry{{{STDOUT_FILENO, POLLOUT, 0}}};
  return cppu::PollUntil(entry, std::chrono::steady_clock::now()) > 0 && (entry[0].revents & POLLOUT) != 0;
}

}  // namespace

void LineOutput::write() {
  while (!waiting_.empty() && IsWritable()) {
    const auto size = std::min<std::size_t>(waiting_.size(), PIPE_BUF);  // what a writable pipe takes at once
    const auto written = cppu::Uninterrupted([&] { return ::write(STDOUT_FILENO, waiting_.data(), size); });
    if (written < 0 && errno == EAGAIN) return;
    if (written < 0) throw CommandFailure(std::string("cannot write: ") + std::strerror(errno));
    waiting_.erase(0, static_cast<std::size_t>(written));
  }
}

pollfd LineOutput::entry() const {
  return {STDOUT_FILENO, static_cast<short>(waiting_.empty() ? 0 : POLLOUT), 0};
}

bool LineOutput::isDead(const pollfd& entry) { return (entry.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0; }

}  // namespace qvio_tool
