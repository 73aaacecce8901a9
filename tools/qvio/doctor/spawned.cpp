#include "doctor/spawned.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <memory>

#include "util/argv.h"
#include "util/system_call.h"
#include "util/unique_fd.h"

namespace qvio_tool {
namespace {

/// posix_spawnp looks in PATH alone, which lacks these folders for ordinary users.
std::string PathOf(const std::string& program) {
  for (const std::string folder : {"/usr/sbin/", "/sbin/", "/usr/bin/", "/bin/"})
    if (::access((folder + program).c_str(), X_OK) == 0) return folder + program;
  return {};
}

/// -1 if it could not be started. Its standard error is dropped.
pid_t Start(const std::string& path, const std::vector<std::string>& command, int output) {
  const auto words = cppu::Argv(command);
  posix_spawn_file_actions_t actions{};
  if (::posix_spawn_file_actions_init(&actions) != 0) return -1;
  const std::unique_ptr<posix_spawn_file_actions_t, int (*)(posix_spawn_file_actions_t*)> owner(
      &actions, ::posix_spawn_file_actions_destroy);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  return ::posix_spawn(&pid, path.c_str(), &actions, nullptr, words.data(), environ) == 0 ? pid : -1;
}

/// False when the end has not come in time.
bool ReadAll(int fd, cppu::Deadline deadline, std::string& text) {
  std::array<char, 4096> buffer{};
  for (;;) {
    pollfd entry{fd, POLLIN, 0};
    if (cppu::PollUntil({&entry, 1}, deadline) <= 0) return false;
    const auto got = cppu::Uninterrupted([&] { return ::read(fd, buffer.data(), buffer.size()); });
    if (got <= 0) return got == 0;
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace

std::optional<std::string> OutputOf(const std::vector<std::string>& command,
                                    std::chrono::milliseconds limit) {
  const auto path = PathOf(command.front());
  std::array<int, 2> ends{};
  if (path.empty() || ::pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  const cppu::UniqueFd reading(ends[0]);
  cppu::UniqueFd writing(ends[1]);
  const auto pid = Start(path, command, writing.get());
  writing.reset();
  if (pid < 0) return {};
  std::string text;
  const bool isDone = ReadAll(reading.get(), std::chrono::steady_clock::now() + limit, text);
  if (!isDone) ::kill(pid, SIGKILL);
  int status = 0;
  cppu::Uninterrupted([&] { return ::waitpid(pid, &status, 0); });
  return isDone && status == 0 ? std::optional(text) : std::nullopt;
}

}  // namespace qvio_tool
