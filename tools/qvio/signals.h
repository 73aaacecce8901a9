#pragma once

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

#include "util/unique_fd.h"

namespace qvio_tool {

/// The signals that a program on a terminal must act on, taken from a descriptor during this object's life,
/// so that what must be put back (the terminal, the channel) is.
class TerminalSignals {
 public:
  TerminalSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT}) sigaddset(&signals, signal);
    ::sigprocmask(SIG_BLOCK, &signals, &before_);
    fd_ = cppu::UniqueFd(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  }
  TerminalSignals(const TerminalSignals&) = delete;
  TerminalSignals& operator=(const TerminalSignals&) = delete;

  /// A signal that was to end the program does so now.
  ~TerminalSignals() {
    ::sigprocmask(SIG_SETMASK, &before_, nullptr);
    if (ending_ != 0) ::raise(ending_);
  }

  /// Readable when one has come.
  [[nodiscard]] int fd() const { return fd_.get(); }

  enum class Event { End, TerminalChanged };
  [[nodiscard]] Event take() {
    signalfd_siginfo signal{};
    const bool read = ::read(fd_.get(), &signal, sizeof signal) == sizeof signal;
    const auto number = static_cast<int>(signal.ssi_signo);
    if (!read || number == SIGWINCH || number == SIGCONT) return Event::TerminalChanged;
    ending_ = number;
    return Event::End;
  }

 private:
  sigset_t before_{};
  cppu::UniqueFd fd_;
  int ending_ = 0;
};

}  // namespace qvio_tool
