#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "util/argv.h"
#include "util/system_call.h"
#include "util/unique_fd.h"

namespace qvtest {

/// A running qvio-sim, the one that QVIO_SIM names, with a pipe on its standard output and standard error.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    output_ = cppu::UniqueFd(ends[0]);
    const cppu::UniqueFd input(ends[1]);
    posix_spawn_file_actions_t actions{};
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input.get(), STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, input.get(), STDERR_FILENO);
    arguments.insert(arguments.begin(), QVIO_SIM);
    const auto argv = cppu::Argv(arguments);
    EXPECT_EQ(::posix_spawn(&pid_, QVIO_SIM, &actions, nullptr, argv.data(), environ), 0);
    ::posix_spawn_file_actions_destroy(&actions);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() {
    if (pid_ > 0) end(SIGKILL);
  }

  [[nodiscard]] std::string line() const {
    std::string text;
    char byte = 0;
    const auto read = [&] { return ::read(output_.get(), &byte, 1); };
    while (cppu::Uninterrupted(read) == 1 && byte != '\n') text += byte;
    return text;
  }

  int end(int signal) {
    ::kill(pid_, signal);
    return exitCode();
  }

  int exitCode() {
    int status = 0;
    const auto pid = std::exchange(pid_, -1);
    cppu::Uninterrupted([&] { return ::waitpid(pid, &status, 0); });
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  cppu::UniqueFd output_;
};

}  // namespace qvtest
