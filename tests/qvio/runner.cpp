#include "qvio/runner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "support/wait.h"
#include "util/argv.h"
#include "util/system_call.h"

namespace qvtest {
namespace {

[[noreturn]] void BecomeQvio(Words arguments) {
  arguments.insert(arguments.begin(), "qvio");
  ::execv(QVIO_PROGRAM, cppu::Argv(arguments).data());
  ::_exit(126);
}

int StatusOf(int pid) {
  int status = 0;
  cppu::Uninterrupted([&] { return ::waitpid(pid, &status, 0); });
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool HasEnded(int pid) {
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == pid;
}

}  // namespace

cppu::UniqueFd FileOf(const std::string& content) {
  cppu::UniqueFd fd(::memfd_create("qvio", MFD_CLOEXEC));
  if (::pwrite(fd.get(), content.data(), content.size(), 0) != static_cast<ssize_t>(content.size()))
    throw std::runtime_error("no file in memory");
  return fd;
}

std::string ContentOf(const cppu::UniqueFd& file) {
  std::string text(static_cast<std::size_t>(::lseek(file.get(), 0, SEEK_END)), '\0');
  return ::pread(file.get(), text.data(), text.size(), 0) < 0 ? "cannot read" : text;
}

std::array<cppu::UniqueFd, 2> MakePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  return {cppu::UniqueFd(ends[0]), cppu::UniqueFd(ends[1])};
}

bool BecomesFull(int fd) {
  pollfd entry{fd, POLLOUT, 0};
  return Eventually([&] { return ::poll(&entry, 1, 0) == 0; });
}

Outcome RunQvio(const Words& words, const std::string& input) {
  const std::array files{FileOf(input), FileOf(""), FileOf("")};
  const int pid = ::fork();
  if (pid == 0) {
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
      ::dup2(files.at(static_cast<std::size_t>(standard)).get(), standard);
    BecomeQvio(words);
  }
  return {StatusOf(pid), ContentOf(files[1]), ContentOf(files[2])};
}

void ExpectText(const Expected& expected) {
  const auto outcome = RunQvio(expected.words);
  const auto all = outcome.errors + outcome.output;
  EXPECT_EQ(outcome.status, expected.status) << testing::PrintToString(expected.words) << all;
  EXPECT_NE(all.find(expected.text), std::string::npos) << expected.text << "\nis not in\n" << all;
}

QvioTerminal::QvioTerminal(const Words& arguments, const Redirected& redirected) {
  const winsize size{30, 100, 0, 0};
  pid_ = ::forkpty(&master_, nullptr, nullptr, &size);
  if (pid_ == 0) {
    ::setenv("TERM", "xterm", 1);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::setenv("XDG_STATE_HOME", "/dev/null", 1);  // no history is kept
    if (redirected.output >= 0) ::dup2(redirected.output, STDOUT_FILENO);
    if (redirected.errors >= 0) ::dup2(redirected.errors, STDERR_FILENO);
    BecomeQvio(arguments);
  }
}

QvioTerminal::~QvioTerminal() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    StatusOf(pid_);
  }
  ::close(master_);
}

void QvioTerminal::type(const std::string& keys) const {
  if (::write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    throw std::runtime_error("the terminal takes no keys");
  }
}

bool QvioTerminal::readMore() {
  std::array<pollfd, 1> entry{{{master_, POLLIN, 0}}};
  if (cppu::PollUntil(entry, std::chrono::steady_clock::now() + kGenerous) <= 0) return false;
  std::array<char, 4096> buffer{};
  const auto got = ::read(master_, buffer.data(), buffer.size());
  if (got <= 0) return false;
  screen_.append(buffer.data(), static_cast<std::size_t>(got));
  return true;
}

bool QvioTerminal::shows(const std::string& text) {
  for (;;) {
    const auto found = screen_.find(text, seen_);
    if (found != std::string::npos) {
      seen_ = found + text.size();
      return true;
    }
    if (!readMore()) return false;
  }
}

int QvioTerminal::waitForEnd() {
  while (readMore()) {
  }
  if (!Eventually([&] { return HasEnded(pid_); })) ::kill(pid_, SIGKILL);
  return StatusOf(std::exchange(pid_, -1));
}

bool QvioTerminal::takesAllKeys() const {
  const auto screen = openScreen();
  int unread = 0;
  return Eventually([&] { return ::ioctl(screen.get(), FIONREAD, &unread) == 0 && unread == 0; });
}

cppu::UniqueFd QvioTerminal::openScreen() const {
  return cppu::UniqueFd(::open(::ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC));
}

}  // namespace qvtest
