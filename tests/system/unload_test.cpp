// Loading, using and unloading the library again and again. This program is not linked with it.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "quorvio/quorvio.h"
#include "support/discovery.h"
#include "support/links.h"
#include "support/loaded_library.h"
#include "support/process.h"
#include "support/wait.h"

namespace qvtest {
namespace {

/// Loads the library, exchanges bytes with a device, closes the channel and unloads the library at once.
void UseOnce(const EchoLink& link, uint32_t wait) {
  const LoadedLibrary library;
  ASSERT_TRUE(library.isLoaded()) << ::dlerror();
  std::atomic<std::size_t> received = 0;
  const auto count = [](void* counter, const uint8_t*, std::size_t length) {
    *static_cast<std::atomic<std::size_t>*>(counter) += length;
  };
  uint32_t handle = 0;
  const auto locator = link.locator();
  const auto options = link.options();
  ASSERT_EQ(library.find<decltype(QV_IO_Open)>("QV_IO_Open")(&handle, locator.c_str(), options.c_str(),
                                                             &received, count, nullptr),
            QV_IO_OK);
  EXPECT_EQ(library.find<decltype(QV_IO_Send)>("QV_IO_Send")(handle, "ping", 4), QV_IO_OK);
  EXPECT_TRUE(Eventually([&] { return received == 4; }));
  EXPECT_EQ(library.find<decltype(QV_IO_Close)>("QV_IO_Close")(handle, wait), QV_IO_OK);
}

TEST(Unload, LeavesNoThreadDescriptorOrMemory) {
  const EchoLink serial(LinkKind::Serial);
  for (const uint32_t wait : {1U, 0U}) {
    for (int warmUp = 0; warmUp < 20; ++warmUp) UseOnce(serial, wait);
    const auto descriptors = Descriptors();
    const auto memory = ::mallinfo2().uordblks;
    for (int round = 0; round < 200; ++round) UseOnce(serial, wait);
    EXPECT_FALSE(IsMapped("libquorvio"));
    EXPECT_TRUE(Eventually([] { return ReceiveThreads() == 0; }));
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_LE(::mallinfo2().uordblks, memory + 4096) << "200 rounds would show a leak of 21 bytes each";
  }
}

/// The library in full use: a TCP device that sends without a pause, and a device that comes and goes on two
/// watched interfaces.
struct Busy {
  explicit Busy(QV_IO_ReceiveCallback onReceive, QV_IO_EventCallback onEvent, void* userData = nullptr) {
    library.find<decltype(QV_IO_SetEventCallback)>("QV_IO_SetEventCallback")(onEvent, userData);
    EXPECT_EQ(library.find<decltype(QV_IO_SetGlobalOptions)>("QV_IO_SetGlobalOptions")(
                  "discovery-iface network:127.0.0.1\ndiscovery-iface network:127.0.0.2"),
              QV_IO_OK);
    const auto locator = link.locator();
    EXPECT_EQ(library.find<decltype(QV_IO_Open)>("QV_IO_Open")(&handle, locator.c_str(), nullptr, userData,
                                                               onReceive, onError),
              QV_IO_OK);
    EXPECT_EQ(library.find<decltype(QV_IO_Send)>("QV_IO_Send")(handle, "x", 1), QV_IO_OK);
    const auto serial = OwnSerial("busy");
    controllers.add(serial);
    EXPECT_TRUE(Eventually([this] { return link.tcp().connections() == 1; }));
    link.sendForever();  // on the connections that there are
    blinking = std::jthread([this, serial](const std::stop_token& stop) {
      for (bool on = false; !stop.stop_requested(); on = !on) controllers->setAvailable(serial, on);
    });
  }
  static void onError(void* /*userData*/, uint32_t /*code*/) {}

  EchoLink link{LinkKind::Tcp};
  Controllers controllers;
  std::jthread blinking;  ///< goes on while the library is unloaded
  LoadedLibrary library;
  uint32_t handle = 0;
};

TEST(Unload, EndsChannelsThatAreStillOpen) {
  for (int round = 0; round < 20; ++round) {
    struct Calls {
      std::atomic<std::size_t> received = 0;
      std::atomic<int> events = 0;
    } calls;
    const Busy busy(
        [](void* user, const uint8_t*, std::size_t length) { static_cast<Calls*>(user)->received += length; },
        [](void* user, uint32_t, const QV_IO_Event*) { ++static_cast<Calls*>(user)->events; }, &calls);
    EXPECT_TRUE(Eventually([&] { return calls.received > 10000; }));
    EXPECT_TRUE(Eventually([&] { return calls.events > 0; }));
  }
  EXPECT_FALSE(IsMapped("libquorvio"));
  EXPECT_TRUE(Eventually([] { return ThreadsNamed("qvio-nd") + ReceiveThreads() == 0; }));
}

void Ignore(void* /*userData*/, const uint8_t* /*data*/, std::size_t /*length*/) {}
void IgnoreEvent(void* /*userData*/, uint32_t /*type*/, const QV_IO_Event* /*event*/) {}

/// How a process that is busy with the library may end. Each must end by itself, at once, with its status.
const struct {
  const char* name;
  QV_IO_ReceiveCallback onReceive;
  QV_IO_EventCallback onEvent;
  bool exits;  ///< the main thread, once the callbacks run
  int status;
} kEndings[] = {{"exit beside callbacks", Ignore, IgnoreEvent, true, 3},
                {"exit in the receive callback", [](void*, const uint8_t*, std::size_t) { std::exit(4); },
                 IgnoreEvent, false, 4},
                {"exit in the event callback", Ignore,
                 [](void*, uint32_t, const QV_IO_Event*) { std::exit(5); }, false, 5},
                {"receive thread ended", [](void*, const uint8_t*, std::size_t) { ::pthread_exit(nullptr); },
                 IgnoreEvent, true, 6},
                {"event thread ended", Ignore,
                 [](void*, uint32_t, const QV_IO_Event*) { ::pthread_exit(nullptr); }, true, 7},
                {"callbacks that hang", [](void*, const uint8_t*, std::size_t) { ::pause(); },
                 [](void*, uint32_t, const QV_IO_Event*) { ::pause(); }, true, 8}};

TEST(Unload, LetsAProcessEndWhateverItIsDoing) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  for (const auto& ending : kEndings) {
    const auto run = [&] {
      static std::atomic<bool> received = false;
      static std::atomic<bool> notified = false;
      static QV_IO_ReceiveCallback onReceive = ending.onReceive;
      static QV_IO_EventCallback onEvent = ending.onEvent;
      const Busy busy([](void* user, const uint8_t* data,
                         std::size_t length) { received = true, onReceive(user, data, length); },
                      [](void* user, uint32_t type, const QV_IO_Event* event) {
                        notified = true, onEvent(user, type, event);
                      });
      while (!ending.exits || !received || !notified) ::usleep(1000);
      std::exit(ending.status);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(ending.status), "") << ending.name;
  }
}

}  // namespace
}  // namespace qvtest
