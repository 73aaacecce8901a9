// Network devices are found, listed, opened by serial number and watched.

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "quorvio/quorvio.h"
#include "support/channel.h"
#include "support/discovery.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;

std::string Port(uint16_t port) { return std::to_string(port); }

/// How the controller with the serial number answers to its name.
std::string NameOf(const std::string& serial) { return "QUORVI,DRV-SIM," + serial + ",1.0"; }

/// The name that the device at the locator gives.
std::string AskName(const std::string& locator, const std::string& options = "") {
  return quorvio::Channel(locator, quorvio::Options::fromLines(options)).query("*IDN?\n", "\r\n", kGenerous);
}

TEST(Discovery, ListsEveryPropertyOfADevice) {
  Controllers controllers;
  const auto serial = OwnSerial("list");
  const auto port = controllers.add(serial, 4711, 9, "X|Y=1%");
  const auto only = "discovery-timeout 500\nfind-device-sn " + serial + '\n';
  EXPECT_EQ(ListDevices(kLoopback, only + "include-all").text,
            "available=1|device-info=X%7CY%3D1%25|device-sn=" + serial +
                "|device-type=4711|iface=network:127.0.0.1|iface-type=network|locator=network:sn:" + serial +
                "|network-host=127.0.0.1|network-port=" + Port(port) + "|protocol-id=9");
  EXPECT_EQ(ListDevices(kLoopback, only + "only-locator\nlocator-format-network host").text,
            "network:127.0.0.1:" + Port(port));
}

TEST(Discovery, MakesNoLocatorOfASerialNumberThatForgesLines) {
  Controllers controllers;
  const auto type = static_cast<uint32_t>(::getpid());
  const auto only = "discovery-timeout 500\nfind-device-type " + std::to_string(type) + '\n';
  controllers.add("A\nnetwork:sn:FORGED", type);
  controllers.add("B\x7F", type);
  const auto listed = '\n' + ListDevices(kLoopback, only + "include-device-sn").text + '\n';
  for (const auto* serial : {"A%0Anetwork:sn:FORGED", "B\x7F"})
    EXPECT_NE(listed.find(std::string("\ndevice-sn=") + serial + '\n'), std::string::npos) << listed;
  for (const auto* format : {"sn", "host"})
    EXPECT_EQ(ListDevices(kLoopback, only + "only-locator\nlocator-format-network " + format).text, "");
}

TEST(Discovery, ListsWhatTheFiltersAskFor) {
  Controllers controllers;
  const auto a = OwnSerial("filter-a");
  const auto b = OwnSerial("filter-b");
  controllers.add(a, 100001, 1);
  controllers.add(b, 100002, 2);
  controllers->setAvailable(b, false);
  const auto locatorA = "network:sn:" + a;
  const auto locatorB = "network:sn:" + b;
  const auto both = "find-device-sn " + a + "\nfind-device-sn " + b + '\n';
  const struct {
    std::string options;
    std::vector<std::string> locators;
  } rows[] = {{both, {locatorA}},
              {both + "find-only-available false", {locatorA, locatorB}},
              {both + "find-only-available false\nfind-device-type 100002", {locatorB}},
              {both + "find-only-available false\nfind-protocol-id 1\nfind-protocol-id 3", {locatorA}},
              {"find-device-sn nobody", {}}};
  for (const auto& row : rows) {
    auto text = ListDevices(kLoopback, row.options + "\nonly-locator\ndiscovery-timeout 300").text + '\n';
    for (const auto& locator : row.locators) {
      const auto at = text.find(locator + '\n');
      ASSERT_NE(at, std::string::npos) << row.options << '\n' << text;
      text.erase(at, locator.size() + 1);
    }
    EXPECT_EQ(text.find("network:"), std::string::npos) << row.options << '\n' << text;
  }
}

TEST(Discovery, OpensByASerialNumberThatASearchOrTheCacheKnows) {
  Controllers controllers;
  const auto serial = OwnSerial("open");
  const auto other = OwnSerial("other");
  controllers.add(serial);
  const auto otherPort = Port(controllers.add(other));
  const auto locator = "network:sn:" + serial;
  EXPECT_EQ(OpenResult(locator), QV_IO_ERROR_DEVICE_NOT_FOUND) << "no interface, no search";
  EXPECT_EQ(OpenResult(locator, "iface network:x"), QV_IO_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(OpenResult("network:sn:nobody", "iface network:127.0.0.1"), QV_IO_ERROR_DEVICE_NOT_FOUND);
  for (const auto* options : {"iface network:127.0.0.1\ndiscovery-timeout 500", ""})
    EXPECT_EQ(AskName(locator, options), NameOf(serial));
  EXPECT_EQ(AskName(locator + ':' + otherPort), NameOf(other));
}

TEST(Discovery, ASearchForOneDeviceEndsWithItsAnswerAndLeavesTheOthers) {
  Controllers controllers;
  const auto serial = OwnSerial("one");
  const auto other = OwnSerial("other");
  controllers.add(serial);
  controllers.add(other);
  const EventRecorder recorder(other);
  ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:127.0.0.1"), QV_IO_OK);
  const std::string only = "only-locator\ndiscovery-timeout 500\nfind-device-sn " + other;
  EXPECT_EQ(ListDevices(kLoopback, only).text, "network:sn:" + other);
  const auto known = recorder.events().size();
  auto listing = std::async(std::launch::async, [&] { return ListDevices(kLoopback, only).text; });
  for (const auto* const absent : {"absent", "nobody"}) {
    EXPECT_EQ(OpenResult("network:sn:" + std::string(absent), "iface network:127.0.0.1"),
              QV_IO_ERROR_DEVICE_NOT_FOUND);
  }
  EXPECT_EQ(listing.get(), "network:sn:" + other) << "searches for others do not end what it has heard";
  EXPECT_EQ(recorder.events().size(), known) << "nobody asked it, so its silence says nothing";

  ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:none"), QV_IO_OK);
  controllers->changePort(serial);
  const auto late = OwnSerial("late");  // not in the cache
  controllers.add(late);
  const auto started = std::chrono::steady_clock::now();
  // An interface that is not local is left out of the search.
  EXPECT_EQ(OpenResult("network:sn:" + late,
                       "iface network:198.51.100.7\niface network:127.0.0.1\ndiscovery-timeout 60000"),
            QV_IO_OK);
  EXPECT_LT(std::chrono::steady_clock::now() - started, kGenerous);
}

TEST(Discovery, OpensADeviceThatHasMovedWhereItSpokeLast) {
  Controllers controllers;
  const auto serial = OwnSerial("moves");
  controllers.add(serial);
  for (int round = 0; round < 8; ++round) {
    EXPECT_NE(ListDevices(kLoopback, "only-locator\ndiscovery-timeout 300").text.find(serial),
              std::string::npos);
    EXPECT_EQ(AskName("network:sn:" + serial), NameOf(serial)) << round;
    controllers->changePort(serial);
  }
}

TEST(Discovery, FindsADeviceWhateverElseComesAlongUnlessItAnswersTooLate) {
  const struct {
    qvsim::DiscoveryFaults faults;
    int timeout;
    bool found;
  } rows[] = {{{.duplicate = true}, 800, true},
              {{.malformed = true}, 800, true},
              {{.wrongToken = true}, 800, true},  // a reply counts, whoever has asked
              {{.delay = 200ms}, 800, true},
              {{.delay = 2s}, 50, false}};
  for (const auto& row : rows) {
    Controllers controllers(kLoopback, row.faults);
    const auto serial = OwnSerial("fault");
    controllers.add(serial);
    const auto options =
        "only-locator\ndiscovery-timeout " + std::to_string(row.timeout) + "\nfind-device-sn ";
    EXPECT_EQ(ListDevices(kLoopback, options + serial).text, row.found ? "network:sn:" + serial : "");
  }
}

TEST(Watching, ReportsDevicesAsTheyComeChangeAndGo) {
  const auto serial = OwnSerial("watch");
  const EventRecorder recorder(serial);
  ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:127.0.0.1"), QV_IO_OK);
  Controllers controllers;
  const auto port = Port(controllers.add(serial));
  const auto found = "found available=1|network-port=" + port;
  const auto away = "lost available=0|network-port=" + port;
  std::vector<std::string> wanted{found};
  EXPECT_TRUE(recorder.eventually(wanted));
  const auto next = [&](const std::string& event) {
    wanted.push_back(event);
    return recorder.eventually(wanted);
  };
  controllers->setAvailable(serial, false);
  EXPECT_TRUE(next(away));
  EXPECT_EQ(OpenResult("network:sn:" + serial), QV_IO_ERROR_DEVICE_NOT_FOUND) << "it left the cache";
  controllers->setAvailable(serial, true);
  EXPECT_TRUE(next(found));
  controllers->leave(serial);
  EXPECT_TRUE(next(away));
  controllers->comeBack(serial);
  EXPECT_TRUE(next(found));

  // A device that moves to another port is a new one; a search finds that the old one is gone.
  controllers->changePort(serial);
  EXPECT_TRUE(Eventually([&] { return recorder.events().size() == wanted.size() + 1; }));
  wanted.push_back(recorder.events().back());
  EXPECT_NE(wanted.back(), found);
  ListDevices(kLoopback, "only-locator\ndiscovery-timeout 500");
  EXPECT_TRUE(next("lost available=1|network-port=" + port));

  controllers->vanish(serial);
  wanted.push_back("lost" + wanted[wanted.size() - 2].substr(5));
  EXPECT_TRUE(Eventually([&] {  // its answer to another test's search may still come after the first one
    ListDevices(kLoopback, "only-locator\ndiscovery-timeout 100");
    return recorder.events() == wanted;
  }));

  ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:none"), QV_IO_OK);
  controllers->comeBack(serial);
  EXPECT_NE(ListDevices(kLoopback, "only-locator\ndiscovery-timeout 500").text.find(serial),
            std::string::npos);
  EXPECT_EQ(recorder.events(), wanted) << "a listing makes no events";
}

/// What the callbacks below have in common: whether they may still be entered.
struct Permission {
  std::atomic<bool> granted = true;
  std::atomic<int> entered = 0;
  std::atomic<int> forbidden = 0;

  static void onEvent(void* self, uint32_t /*type*/, const QV_IO_Event* /*event*/) {
    auto& permission = *static_cast<Permission*>(self);
    ++permission.entered;
    if (!permission.granted) ++permission.forbidden;
  }
};

TEST(Watching, EntersNoCallbackThatWasReplacedAndNoneThatWasSwitchedOff) {
  const EventRecorder restoresTheSettings("nobody");
  Controllers controllers;
  const auto serial = OwnSerial("barrier");
  controllers.add(serial);
  ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:127.0.0.1"), QV_IO_OK);
  std::atomic<bool> done = false;
  std::thread blinking([&] {
    for (bool on = false; !done; on = !on) controllers->setAvailable(serial, on);
  });
  for (int round = 0; round < 20; ++round) {
    Permission first;
    Permission second;
    QV_IO_SetEventCallback(Permission::onEvent, &first);
    EXPECT_TRUE(Eventually([&] { return first.entered > 0; }));
    QV_IO_SetEventCallback(Permission::onEvent, &second);
    first.granted = false;
    EXPECT_TRUE(Eventually([&] { return second.entered > 0; }));
    if (round % 2 == 0) {
      QV_IO_SetEventCallback(nullptr, nullptr);
    } else {
      QV_IO_SetGlobalOptions("discovery-iface network:none");
    }
    second.granted = false;
    std::this_thread::sleep_for(5ms);  // time for what must not happen
    EXPECT_EQ(first.forbidden + second.forbidden, 0);
    QV_IO_SetEventCallback(nullptr, nullptr);
    ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:127.0.0.1"), QV_IO_OK);
  }
  done = true;
  blinking.join();
}

TEST(Watching, ListsWhatIsKnownFromWithinTheEventCallback) {
  struct Inside {
    std::string serial = OwnSerial("inside");
    std::atomic<int> listed = 0;
    static void onEvent(void* self, uint32_t /*type*/, const QV_IO_Event* /*event*/) {
      auto& inside = *static_cast<Inside*>(self);
      const auto options = "only-locator\ndiscovery-timeout 100\nfind-device-sn " + inside.serial;
      if (ListDevices("127.0.0.1\niface network:127.0.0.2", options).text.find(inside.serial) !=
          std::string::npos)
        ++inside.listed;
    }
  } inside;
  const EventRecorder restoresTheSettings("nobody");
  QV_IO_SetEventCallback(Inside::onEvent, &inside);
  ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:127.0.0.1\ndiscovery-iface network:127.0.0.2"),
            QV_IO_OK);
  Controllers controllers;
  controllers.add(inside.serial);
  EXPECT_TRUE(Eventually([&] { return inside.listed >= 2; })) << "one for each interface";
  controllers->vanish(inside.serial);
  ListDevices(kLoopback);  // its sweep raises an event on the searching thread
  QV_IO_SetGlobalOptions("");
}

}  // namespace
}  // namespace qvtest
