#pragma once

#include <sys/signalfd.h>

#include <csignal>

#include "util/unique_fd.h"

namespace qvio_tool {

/// The signals that end the program, taken from a descriptor during this object's life, so that what must be
/// put back (the terminal, the channel) is.
class EndSignals {
 public:
  EndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
    ::sigprocmask(SIG_BLOCK, &signals, &before_);
    fd_ = cppu::UniqueFd(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  }
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;
  ~EndSignals() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

  /// Readable when one of them has come; the signal stays pending and ends the program after this object's
  /// life.
  [[nodiscard]] int fd() const { return fd_.get(); }

 private:
  sigset_t before_{};
  cppu::UniqueFd fd_;
};

}  // namespace qvio_tool
