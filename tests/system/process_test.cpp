// What a process may do to itself while it uses the library: fork, and cancel a thread inside a call.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>

#include "quorvio/quorvio.h"
#include "support/channel.h"
#include "support/discovery.h"
#include "support/links.h"
#include "support/recorded_channel.h"
#include "util/system_call.h"

namespace qvtest {
namespace {

int StatusOf(pid_t child) {
  int status = 0;
  cppu::Uninterrupted([&] { return ::waitpid(child, &status, 0); });
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// A forked child that returns the action's result as its status, the ordinary way.
pid_t ForkAndRun(const std::function<int()>& action) {
  const auto child = ::fork();
  if (child != 0) return child;
#ifdef __SANITIZE_ADDRESS__
  ::_exit(action());  // what only the parent's threads refer to would count as leaked
#else
  std::exit(action());
#endif
}

class Fork : public testing::Test {
 protected:
  void SetUp() override {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer does not support threads in a forked child";
#endif
  }
};

/// What must hold in a child: each true is a bit. The simulated devices run in the parent.
int UseAfresh(uint32_t parentsHandle, const std::string& locator, const std::string& serial) {
  int holds = 0;
  if (QV_IO_Close(parentsHandle, 1) == QV_IO_ERROR_INVALID_HANDLE) holds |= 1;
  if (Echoed(quorvio::Channel(locator), "child") == "child") holds |= 2;
  if (QV_IO_SetGlobalOptions("discovery-iface network:127.0.0.1") == QV_IO_OK) holds |= 4;
  if (ListDevices(kLoopback,
                  "only-locator\ndiscovery-timeout 500\nfind-only-available false\nfind-device-sn " + serial)
          .text == "network:sn:" + serial)
    holds |= 8;
  return holds;
}

TEST_F(Fork, GivesTheChildAFreshStartAndLeavesTheParentAlone) {
  const auto serial = OwnSerial("fork");
  const EventRecorder recorder(serial);
  ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:127.0.0.1"), QV_IO_OK);
  EchoLink link(LinkKind::Tcp);
  const RecordedChannel channel(link.locator());
  Controllers controllers;
  controllers.add(serial);
  EXPECT_TRUE(Eventually([&] { return !recorder.events().empty(); }));
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(StatusOf(ForkAndRun([&] { return UseAfresh(channel.handle(), link.locator(), serial); })), 15);
    const auto known = recorder.events().size();
    controllers->setAvailable(serial, round % 2 != 0);
    EXPECT_TRUE(Eventually([&] { return recorder.events().size() > known; })) << "still hears of devices";
    EXPECT_EQ(channel.send("parent"), QV_IO_OK);
  }
  EXPECT_TRUE(channel.receives("parentparentparent"));
}

TEST_F(Fork, InACallbackGoesOnInTheParentAlone) {
  EchoLink link(LinkKind::Tcp);
  RecordedChannel channel(link.locator());
  std::atomic<pid_t> child = 0;
  channel.onPiece = [&](std::string_view) {
    if (child == 0) child = ::fork();  // comes back from the callback in the child, too
  };
  ASSERT_EQ(channel.send("a"), QV_IO_OK);
  EXPECT_TRUE(channel.receives("a"));
  EXPECT_EQ(StatusOf(child), 0) << "its only thread has ended";
  ASSERT_EQ(channel.send("b"), QV_IO_OK);
  EXPECT_TRUE(channel.receives("ab"));
}

TEST(Cancellation, WaitsForTheEndOfACall) {
  pthread_t thread{};
  static std::atomic<bool> returned;
  const auto search = [](void*) -> void* {
    ::pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    static_cast<void>(ListDevices(kLoopback, "only-locator\ndiscovery-timeout 200"));
    returned = true;
    for (;;) ::pause();  // cancelled here at the latest
  };
  for (int round = 0; round < 3; ++round) {
    returned = false;
    ASSERT_EQ(::pthread_create(&thread, nullptr, search, nullptr), 0);
    ASSERT_EQ(::pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(::pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
  }
  EXPECT_EQ(ListDevices(kLoopback, "only-locator\nfind-device-sn nobody").result, QV_IO_OK);
}

}  // namespace
}  // namespace qvtest
