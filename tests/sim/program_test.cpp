// The program qvio-sim as a user starts it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "util/system_call.h"
#include "util/unique_fd.h"

namespace qvsim {
namespace {

/// A running qvio-sim with a pipe on its standard output and standard error.
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
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
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

TEST(Program, AnnouncesItsDeviceAndEndsCleanlyBySignal) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Program network({"network", "--port", "0"});
    EXPECT_TRUE(network.line().starts_with("127.0.0.1:"));
    EXPECT_EQ(network.end(signal), 0);
  }
}

TEST(Program, LinksToItsTerminalWhileItRuns) {
  const auto link = std::filesystem::temp_directory_path() / ("qvio-sim-" + std::to_string(::getpid()));
  Program serial({"serial", "--link", link.string()});
  const auto path = serial.line();
  EXPECT_EQ(std::filesystem::read_symlink(link), path);
  Program second({"serial", "--link", link.string()});
  EXPECT_EQ(second.line(), "qvio-sim: cannot link " + link.string() + ": File exists");
  EXPECT_EQ(second.exitCode(), 1);
  EXPECT_EQ(std::filesystem::read_symlink(link), path) << "the other one's link stays";
  EXPECT_EQ(serial.end(SIGTERM), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST(Program, TellsWrongUsage) {
  const std::vector<std::string> rows[] = {{},
                                           {"other"},
                                           {"network", "--count", "3"},
                                           {"network", "--iface", "127.0.0.1", "--drop", "2"},
                                           {"network", "--port", "65536"},
                                           {"network", "--port", "0", "--listen", "host"},
                                           {"serial", "--speed", "-1"},
                                           {"serial", "--serial", "a,b"}};
  for (const auto& row : rows) {
    Program program(row);
    const auto line = program.line();
    EXPECT_TRUE(line.starts_with("qvio-sim: ")) << line;
    EXPECT_EQ(program.exitCode(), 2) << line;
  }
}

}  // namespace
}  // namespace qvsim
