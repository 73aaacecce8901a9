#pragma once

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <system_error>

#include "util/unique_fd.h"

namespace qvio_tool {

/// Signals that are taken from a descriptor during this object's life. Must be there before other threads
/// start, which would take them otherwise.
class SignalDescriptor {
 public:
  /// Throws std::system_error when there is no descriptor left.
  SignalDescriptor(std::initializer_list<int> numbers) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : numbers) sigaddset(&signals, number);
    fd_ = cppu::UniqueFd(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd_) throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
    ::sigprocmask(SIG_BLOCK, &signals, &before_);
  }
  SignalDescriptor(const SignalDescriptor&) = delete;
  SignalDescriptor& operator=(const SignalDescriptor&) = delete;
  ~SignalDescriptor() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

  /// Readable when a signal has come.
  [[nodiscard]] int fd() const { return fd_.get(); }

  /// The number of a signal that has come; 0: none has.
  [[nodiscard]] int take() const {
    signalfd_siginfo signal{};
    const bool read = ::read(fd_.get(), &signal, sizeof signal) == sizeof signal;
    return read ? static_cast<int>(signal.ssi_signo) : 0;
  }

 private:
  sigset_t before_{};
  cppu::UniqueFd fd_;
};

/// The signals that a program on a terminal must act on, taken from a descriptor, so that what must be put
/// back (the terminal, the channel) is.
class TerminalSignals {
 public:
  TerminalSignals() = default;
  TerminalSignals(const TerminalSignals&) = delete;
  TerminalSignals& operator=(const TerminalSignals&) = delete;

  /// A signal that was to end the program does so as soon as it is let through again.
  ~TerminalSignals() {
    if (ending_ != 0) ::raise(ending_);
  }

  /// Readable when a signal has come.
  [[nodiscard]] int fd() const { return signals_.fd(); }

  enum class Event { End, TerminalChanged };
  [[nodiscard]] Event take() {
    const int number = signals_.take();
    if (number == 0 || number == SIGWINCH || number == SIGCONT) return Event::TerminalChanged;
    ending_ = number;
    return Event::End;
  }

 private:
  SignalDescriptor signals_{SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGWINCH, SIGCONT};
  int ending_ = 0;
};

}  // namespace qvio_tool
