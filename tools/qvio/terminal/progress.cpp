#include "terminal/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace qvio_tool {
namespace {

constexpr std::chrono::milliseconds kBetweenDrawings{100};
constexpr std::size_t kWidth = 30;

}  // namespace

Progress::Progress(uint64_t total) : total_(total), shows_(::isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
  if (!shows_) return;
  draw(Clock::now());
  std::fputc('\n', stderr);
}

void Progress::set(uint64_t done) {
  done_ = done;
  const auto now = Clock::now();
  if (!shows_ || now < next_) return;
  next_ = now + kBetweenDrawings;
  draw(now);
}

void Progress::draw(Clock::time_point now) const {
  const double seconds = std::max(std::chrono::duration<double>(now - begin_).count(), 1e-3);
  const double rate = static_cast<double>(done_) / seconds;
  const double share = total_ == 0 ? 1 : static_cast<double>(done_) / static_cast<double>(total_);
  const double left = rate > 0 ? static_cast<double>(total_ - done_) / rate : 0;
  std::string bar(static_cast<std::size_t>(share * kWidth), '#');
  bar.resize(kWidth, '.');
  std::fprintf(stderr, "\r[%s] %3.0f %%  %.1f of %.1f kB  %.1f kB/s  %.0f s left ", bar.c_str(), share * 100,
               static_cast<double>(done_) / 1e3, static_cast<double>(total_) / 1e3, rate / 1e3, left);
}

}  // namespace qvio_tool
