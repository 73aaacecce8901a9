#include "sim/main_loop.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

#include "sim/checked.h"
#include "util/system_call.h"

namespace qvsim {
namespace {

/// The lines of standard input, as they come.
class InputLines {
 public:
  explicit InputLines(const std::function<void(std::string_view)>& onLine) : onLine_(onLine) {}

  /// Reads what is there. False at the end of the input.
  bool read() {
    std::array<char, 4096> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by read
    const auto got = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    // A job in the background may not read from its terminal; it may again once it is brought to the front.
    if (got < 0) return errno == EIO || errno == EINTR || errno == EAGAIN;
    if (got == 0) return false;
    pending_.append(buffer.data(), static_cast<std::size_t>(got));
    for (auto end = pending_.find('\n'); end != std::string::npos; end = pending_.find('\n')) {
      onLine_(std::string_view(pending_).substr(0, end));
      pending_.erase(0, end + 1);
    }
    return true;
  }

 private:
  const std::function<void(std::string_view)>& onLine_;
  std::string pending_;
};

bool IsInBackground() {
  const auto owner = ::tcgetpgrp(STDIN_FILENO);
  return owner >= 0 && owner != ::getpgrp();
}

}  // namespace

MainLoop::MainLoop() {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // a reader that is gone is a failure to tell
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signals_ = cppu::UniqueFd(Checked(::signalfd(-1, &signals, SFD_CLOEXEC), "signalfd"));
}

void MainLoop::run(const std::function<void(std::string_view)>& onLine) const {
  using namespace std::chrono_literals;
  InputLines input(onLine);
  bool reads = static_cast<bool>(onLine);
  for (;;) {
    // A terminal that another program has in the foreground is looked at again from time to time.
    const bool elsewhere = reads && IsInBackground();
    std::array<pollfd, 2> entries{
        {{signals_.get(), POLLIN, 0}, {reads && !elsewhere ? STDIN_FILENO : -1, POLLIN, 0}}};
    Checked(cppu::PollUntil(entries, elsewhere ? cppu::Deadline(std::chrono::steady_clock::now() + 500ms)
                                               : cppu::Deadline()),
            "poll");
    if (entries[0].revents != 0) return;
    if (entries[1].revents != 0) reads = input.read();
  }
}

}  // namespace qvsim
