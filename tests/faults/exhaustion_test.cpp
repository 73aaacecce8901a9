// Descriptors that run out, and child processes that must get none.

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "faults/uses.h"
#include "quorvio/quorvio.h"
#include "support/process.h"
#include "support/wait.h"
#include "util/system_call.h"
#include "util/unique_fd.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kEnough = 12;  ///< descriptors, for each use

/// No descriptor with a number from `end` on can be had during its life.
class DescriptorsEndAt {
 public:
  explicit DescriptorsEndAt(rlim_t end) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit few{end, before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
  }
  DescriptorsEndAt(const DescriptorsEndAt&) = delete;
  DescriptorsEndAt& operator=(const DescriptorsEndAt&) = delete;
  ~DescriptorsEndAt() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

/// The limit that leaves so many. There may be gaps between those that are open.
rlim_t EndThatLeaves(std::size_t left) {
  std::vector<cppu::UniqueFd> free;
  while (free.size() <= left) free.emplace_back(::dup(STDIN_FILENO));
  return static_cast<rlim_t>(free.back().get());
}

/// Not with UndefinedBehaviorSanitizer, which looks at exceptions by means of a pipe: it fails without
/// descriptors, and children inherit it.
class DescriptorLimits : public testing::Test {
  void SetUp() override {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "UndefinedBehaviorSanitizer has descriptors of its own";
#endif
  }
};

TEST_F(DescriptorLimits, AreBorneInEveryPlaceWithAResultAndNoLeak) {
  const Devices devices;
  if (!devices.areAlone()) GTEST_SKIP() << PrivateNetwork::kForbidden;
  int disturbed = 0;
  for (const auto& use : devices.uses()) {
    const auto good = use.undisturbed();
    const auto descriptors = Descriptors();
    for (std::size_t left = 0; left < kEnough; ++left) {
      Answers answers;
      {
        const DescriptorsEndAt end(EndThatLeaves(left));
        use.run(40ms, answers);
      }
      disturbed += answers.text() == good.text() ? 0 : 1;
      EXPECT_TRUE(answers.areStated()) << use.name << " with " << left << " left: " << answers.text();
      EXPECT_EQ(use.undisturbed().text(), good.text()) << "it works afterwards";
      EXPECT_TRUE(Eventually([&] { return Descriptors() == descriptors; }));
    }
    const DescriptorsEndAt end(EndThatLeaves(kEnough));
    EXPECT_EQ(use.undisturbed().text(), good.text()) << use.name << " needs more than the test has tried";
  }
  EXPECT_GT(disturbed, 10);
}

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

TEST_F(DescriptorLimits, AreNotPassedToAThousandChildren) {
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
