// Loading, using and unloading the library again and again. This program is not linked with it.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "quorvio/quorvio.h"
#include "support/discovery.h"
#include "support/links.h"
#include "support/process.h"
#include "support/wait.h"

namespace qvtest {
namespace {

class LoadedLibrary {
 public:
  LoadedLibrary() : library_(::dlopen(QUORVIO_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL), ::dlclose) {}
  [[nodiscard]] bool isLoaded() const { return library_ != nullptr; }

  template <class Function>
  [[nodiscard]] Function* find(const char* name) const {
    return reinterpret_cast<Function*>(::dlsym(library_.get(), name));
  }

 private:
  std::unique_ptr<void, int (*)(void*)> library_;
};

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

TEST(Unload, EndsDiscoveryWhileDevicesTalk) {
  Controllers controllers;
  const auto serial = OwnSerial("unload");
  controllers.add(serial);
  std::atomic<bool> done = false;
  std::thread blinking([&] {
    for (bool on = false; !done; on = !on) controllers->setAvailable(serial, on);
  });
  for (int round = 0; round < 30; ++round) {
    std::atomic<int> events = 0;
    const LoadedLibrary library;
    const auto count = [](void* counter, uint32_t, const QV_IO_Event*) {
      ++*static_cast<std::atomic<int>*>(counter);
    };
    library.find<decltype(QV_IO_SetEventCallback)>("QV_IO_SetEventCallback")(count, &events);
    EXPECT_EQ(library.find<decltype(QV_IO_SetGlobalOptions)>("QV_IO_SetGlobalOptions")(
                  "discovery-iface network:127.0.0.1"),
              QV_IO_OK);
    EXPECT_TRUE(Eventually([&] { return events > 0; }));
  }
  done = true;
  blinking.join();
  EXPECT_FALSE(IsMapped("libquorvio"));
  EXPECT_TRUE(Eventually([] { return ThreadsNamed("qvio-nd") == 0; }));
}

/// Ends the process from within the event callback, which runs with a lock held that unloading needs.
[[noreturn]] void ExitInsideEvent() {
  Controllers controllers;
  const auto serial = OwnSerial("exit");
  const LoadedLibrary library;
  library.find<decltype(QV_IO_SetEventCallback)>("QV_IO_SetEventCallback")(
      [](void*, uint32_t, const QV_IO_Event*) { std::exit(3); }, nullptr);
  library.find<decltype(QV_IO_SetGlobalOptions)>("QV_IO_SetGlobalOptions")(
      "discovery-iface network:127.0.0.1");
  controllers.add(serial);
  for (;;) ::pause();
}

TEST(Unload, LetsAnApplicationEndInsideItsEventCallback) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(ExitInsideEvent(), testing::ExitedWithCode(3), "");
}

/// Ends the process with everything on: the exit must not wait for what never ends.
[[noreturn]] void ExitWithDiscoveryOn() {
  Controllers controllers;
  controllers.add(OwnSerial("exit"));
  const LoadedLibrary library;
  library.find<decltype(QV_IO_SetGlobalOptions)>("QV_IO_SetGlobalOptions")(
      "discovery-iface network:127.0.0.1");
  std::exit(4);
}

TEST(Unload, LetsAnApplicationEndWithDiscoveryOn) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(ExitWithDiscoveryOn(), testing::ExitedWithCode(4), "");
}

}  // namespace
}  // namespace qvtest
