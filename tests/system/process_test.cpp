// What a process may do to itself while it uses the library: fork, and cancel a thread inside a call.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

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
  std::exit(action());
}

class Fork : public testing::Test {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "a forked child hangs if another thread has held a lock of the sanitizer's allocator";
#endif
  }
};

constexpr const char* kLoopbackInterface = "network:127.0.0.1";

/// What the parent uses, open while it forks.
struct Parent {
  std::string serial = OwnSerial("fork");
  EchoLink link{LinkKind::Tcp};
  Controllers controllers;
  uint32_t handle = 0;
  std::unique_ptr<quorvio::Channel> channel = std::make_unique<quorvio::Channel>(link.locator());
  std::unique_ptr<quorvio::Reconnecting> reconnecting =
      std::make_unique<quorvio::Reconnecting>(link.locator());
  std::unique_ptr<quorvio::DeviceWatch> watch =
      std::make_unique<quorvio::DeviceWatch>(std::vector<std::string>{kLoopbackInterface});

  Parent() {
    EXPECT_EQ(QV_IO_Open(&handle, link.locator().c_str(), "", nullptr, nullptr, nullptr), QV_IO_OK);
    controllers.add(serial);
  }
  Parent(const Parent&) = delete;
  Parent& operator=(const Parent&) = delete;
  ~Parent() { EXPECT_EQ(QV_IO_Close(handle, 1), QV_IO_OK); }
};

/// Waits for an event of the parent's own device. While the child ran, devices of other tests may have filled
/// the watch; then it has lost the oldest events.
bool Hears(const Parent& parent) {
  for (;;) try {
      const auto event = parent.watch->next(kGenerous);
      if (!event || event->device.serialNumber == parent.serial) return event.has_value();
    } catch (const quorvio::Error& error) {
      if (error.code() != quorvio::Errc::eventsLost) throw;
    }
}

/// What must hold in a child: each true is a bit. The simulated devices run in the parent.
int UseAfresh(Parent& parent) {
  int holds = QV_IO_Close(parent.handle, 1) == QV_IO_ERROR_INVALID_HANDLE ? 1 : 0;
  if (CodeOf([&] { (void)parent.channel->read(kGenerous); }) == quorvio::Errc::invalidHandle) holds |= 2;
  if (CodeOf([&] { parent.reconnecting->send("x"); }) == quorvio::Errc::invalidHandle) holds |= 4;
  parent.channel.reset();
  parent.reconnecting.reset();
  parent.watch.reset();
  if (Echoed(Open(parent.link), "child") == "child") holds |= 8;
  const quorvio::DeviceWatch watch({kLoopbackInterface});
  const std::string options =
      "only-locator\ndiscovery-timeout 500\nfind-only-available false\nfind-device-sn ";
  if (ListDevices(kLoopback, options + parent.serial).text == "network:sn:" + parent.serial) holds |= 16;
  return holds;
}

TEST_F(Fork, GivesTheChildAFreshStartAndLeavesTheParentAlone) {
  Parent parent;
  EXPECT_TRUE(Hears(parent));
  for (int round = 0; round < 3; ++round) {
    auto reader = std::async(std::launch::async, [&] { return parent.channel->readExactly(6, kGenerous); });
    EXPECT_EQ(StatusOf(ForkAndRun([&] { return UseAfresh(parent); })), 31);
    parent.controllers->setAvailable(parent.serial, round % 2 != 0);
    EXPECT_TRUE(Hears(parent)) << "still hears of devices";
    parent.channel->send("parent");
    EXPECT_EQ(reader.get(), "parent");
  }
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
