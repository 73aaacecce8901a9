// Settings, searches, opens and events at the same time, for as long as QUORVIO_STRESS_SECONDS says.

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/channel.h"
#include "support/discovery.h"
#include "support/private_network.h"
#include "support/process.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;

std::chrono::seconds StressTime() {
  const auto* const text = std::getenv("QUORVIO_STRESS_SECONDS");
  return std::chrono::seconds(text != nullptr ? std::atoi(text) : 3);
}

TEST(DiscoveryStress, SettingsSearchesAndEventsDoNotBlockEachOther) {
  const PrivateNetwork quiet;  // spares the other tests; loopback does without it
  Controllers controllers(kLoopback, {.duplicate = true, .malformed = true}, 10ms);
  std::vector<std::string> serials;
  for (int i = 0; i < 40; ++i) {
    serials.push_back(OwnSerial("stress" + std::to_string(i)));
    controllers.add(serials.back());
  }
  std::atomic<int> events = 0;
  std::atomic<int> listed = 0;
  std::atomic<int> opened = 0;
  const auto end = std::chrono::steady_clock::now() + StressTime();
  const auto again = [&] { return std::chrono::steady_clock::now() < end; };
  std::vector<std::thread> threads;
  const auto start = [&](auto body) {
    threads.emplace_back([&again, body] {
      for (int round = 0; again(); ++round) body(round);
    });
  };
  for (int i = 0; i < 8; ++i) {
    start([&, i](int round) {
      const auto* const iface = (i + round) % 2 == 0 ? "127.0.0.1\niface network:127.0.0.2" : "127.0.0.1";
      if (!ListDevices(iface, "only-locator\ndiscovery-timeout " + std::to_string(i * 8)).text.empty())
        ++listed;
    });
  }
  start([](int round) {
    constexpr std::array kSettings{
        "discovery-iface network:127.0.0.1", "discovery-iface network:none",
        "discovery-iface network:127.0.0.1\ndiscovery-iface network:127.0.0.2\nlocator-format-network host",
        "discovery-iface network:127.0.0.2\nlocator-format-network sn"};
    QV_IO_SetGlobalOptions(kSettings.at(static_cast<std::size_t>(round) % kSettings.size()));
  });
  start([&](int round) {
    const auto count = [](void* counter, uint32_t, const QV_IO_Event*) {
      ++*static_cast<std::atomic<int>*>(counter);
    };
    QV_IO_SetEventCallback(round % 3 == 0 ? nullptr : +count, &events);
    std::this_thread::sleep_for(1ms);
  });
  start([&](int round) {
    const auto& serial = serials[static_cast<std::size_t>(round) % serials.size()];
    controllers->setAvailable(serial, round % 4 < 2);
    if (round % 7 == 0) controllers->changePort(serial);
  });
  start([&](int round) {
    const auto& serial = serials[static_cast<std::size_t>(round) % serials.size()];
    if (Channel("network:sn:" + serial, "iface network:127.0.0.1").result() == QV_IO_OK) ++opened;
  });
  for (auto& thread : threads) thread.join();
  QV_IO_SetEventCallback(nullptr, nullptr);
  EXPECT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:none"), QV_IO_OK);
  EXPECT_GT(events, 0);
  EXPECT_GT(listed, 0);
  EXPECT_GT(opened, 0);
  EXPECT_TRUE(Eventually([] { return ThreadsNamed("qvio-nd") + ThreadsNamed("qvio-search") == 0; }));
}

}  // namespace
}  // namespace qvtest
