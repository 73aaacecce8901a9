// Child processes, which must not inherit descriptors of the library.

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "faults/uses.h"
#include "quorvio/quorvio.h"
#include "util/system_call.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;

/// Starts a shell that says by its exit status how many descriptors it has.
pid_t StartChild(int round) {
  std::string shell = "/bin/sh";
  std::string option = "-c";
  std::string count = "set -- /proc/self/fd/*; exit $#";
  const std::array<char*, 4> arguments{shell.data(), option.data(), count.data(), nullptr};
  pid_t child = -1;
  if (round % 2 == 0) {
    child = ::fork();
    if (child == 0) {
      ::execv(shell.c_str(), arguments.data());
      ::_exit(255);
    }
  } else {  // which is a vfork inside
    EXPECT_EQ(::posix_spawn(&child, shell.c_str(), nullptr, nullptr, arguments.data(), environ), 0);
  }
  return child;
}

int DescriptorsOf(pid_t child) {
  int status = 0;
  EXPECT_EQ(cppu::Uninterrupted([&] { return ::waitpid(child, &status, 0); }), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Descriptors, AreNotPassedToAThousandChildren) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "UndefinedBehaviorSanitizer looks at exceptions by means of a pipe, which children inherit";
#endif
  const Devices devices;
  if (!devices.areAlone()) GTEST_SKIP() << PrivateNetwork::kForbidden;
  const auto inherited = DescriptorsOf(StartChild(0));
  std::atomic<bool> done = false;
  std::vector<std::thread> users;
  std::atomic<int> rounds = 0;
  for (const auto& use : devices.uses()) {
    users.emplace_back([&] {
      // Whether a device is new to the watching use depends on the others.
      for (; !done; ++rounds) EXPECT_TRUE(use.once(40ms).areStated());
    });
  }
  for (int batch = 0; batch < 20; ++batch) {
    std::array<pid_t, 50> children{};
    for (int round = 0; auto& child : children) child = StartChild(round++);
    for (const auto child : children) EXPECT_EQ(DescriptorsOf(child), inherited);
  }
  done = true;
  for (auto& user : users) user.join();
  EXPECT_GT(rounds, 50) << "there was traffic";
}

}  // namespace
}  // namespace qvtest
