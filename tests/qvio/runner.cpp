#include "qvio/runner.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <future>
#include <stdexcept>

#include "support/wait.h"
#include "util/system_call.h"
#include "util/unique_fd.h"

namespace qvtest {
namespace {

[[noreturn]] void BecomeQvio(const std::vector<std::string>& arguments) {
  std::vector<char*> words{const_cast<char*>("qvio")};
  for (const auto& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  ::execv(QVIO_PROGRAM, words.data());
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

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    reading = cppu::UniqueFd(ends[0]);
    writing = cppu::UniqueFd(ends[1]);
  }
  cppu::UniqueFd reading;
  cppu::UniqueFd writing;
};

std::string ReadAll(int fd) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (;;) {
    const auto got = cppu::Uninterrupted([&] { return ::read(fd, buffer.data(), buffer.size()); });
    if (got <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace

Outcome RunQvio(const std::vector<std::string>& arguments, const std::string& input) {
  Pipe in;
  Pipe out;
  Pipe err;
  const int pid = ::fork();
  if (pid == 0) {
    ::dup2(in.reading.get(), STDIN_FILENO);
    ::dup2(out.writing.get(), STDOUT_FILENO);
    ::dup2(err.writing.get(), STDERR_FILENO);
    BecomeQvio(arguments);
  }
  in.reading.reset();
  out.writing.reset();
  err.writing.reset();
  auto errors = std::async(std::launch::async, [&] { return ReadAll(err.reading.get()); });
  auto output = std::async(std::launch::async, [&] { return ReadAll(out.reading.get()); });
  std::string_view rest = input;
  while (!rest.empty()) {
    const auto written = ::write(in.writing.get(), rest.data(), rest.size());
    if (written <= 0) break;  // it reads no more; its exit status tells why
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  in.writing.reset();
  return {StatusOf(pid), output.get(), errors.get()};
}

QvioTerminal::QvioTerminal(const std::vector<std::string>& arguments) {
  const winsize size{30, 100, 0, 0};
  pid_ = ::forkpty(&master_, nullptr, nullptr, &size);
  if (pid_ == 0) {
    ::setenv("TERM", "xterm", 1);
    ::setenv("XDG_STATE_HOME", "/dev/null", 1);  // no history is kept
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

}  // namespace qvtest
