#include "nd/device_filter.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "nd/known_devices.h"
#include "unit/nd/fake_connection.h"

namespace quorvind {
namespace {

using namespace std::chrono_literals;

DiscoverInfo Device(const std::string& serialNumber, bool available = true,
                    std::chrono::steady_clock::time_point lastSeen = {}) {
  return {7, serialNumber, {10, 0, 0, 9}, 1, 5000, available, "", lastSeen};
}

std::string Name(const DiscoverInfo& info) { return info.SerialNumber + (info.Available ? "1 " : "0 "); }

/// A filter that notes what it reports: "+A1 " added, available; "~A0 " changed; "-A0 " removed.
struct Watcher {
  auto report(const std::string& event) {
    return [this, event](const DiscoverInfo& info, auto... /*change*/) {
      reported += event + Name(info);
      static_cast<void>(filter.devices());  // no lock is held
    };
  }
  explicit Watcher(bool tracksAvailability, uint32_t type = kAnyDeviceType, uint8_t protocolId = 0)
      : filter(host, report("+"), report("~"), report("-"), type, protocolId, tracksAvailability) {}

  /// What it reports for an answer, and what it knows then.
  std::string hear(const DiscoverInfo& info) {
    reported.clear();
    EXPECT_TRUE(filter.onDiscoverInfo(info));
    return result();
  }
  [[nodiscard]] std::string result() const {
    auto text = reported + "| ";
    for (const auto& info : filter.devices()) text += Name(info);
    return text;
  }

  std::shared_ptr<Host> host = std::make_shared<Host>();
  std::string reported;
  DeviceFilter filter;
};

TEST(DeviceFilter, IdentityDecidesWhatIsANewDevice) {
  const DiscoverInfo same{7,   "A", {10, 0, 0, 9}, 1, 5000, false, "info", std::chrono::steady_clock::now(),
                          true};
  EXPECT_TRUE(SameDevice()(Device("A"), same));
  EXPECT_EQ(DeviceHash()(Device("A")), DeviceHash()(same));
  const DiscoverInfo others[] = {{8, "A", {10, 0, 0, 9}, 1, 5000},
                                 {7, "B", {10, 0, 0, 9}, 1, 5000},
                                 {7, "A", {10, 0, 9, 0}, 1, 5000, true},
                                 {7, "A", {10, 0, 0, 9}, 2, 5000},
                                 {7, "A", {10, 0, 0, 9}, 1, 5001}};
  Watcher watcher(false);
  auto known = watcher.hear(Device("A")).substr(4);
  for (const auto& other : others) {
    EXPECT_FALSE(SameDevice()(Device("A"), other));
    EXPECT_EQ(watcher.hear(other), '+' + Name(other) + (known += Name(other)));
  }
  EXPECT_EQ(watcher.hear(same), "~A0 | A0 A0 B0 A1 A0 A0 ");
  EXPECT_EQ(watcher.hear(same), "| A0 A0 B0 A1 A0 A0 ");
  EXPECT_EQ(watcher.hear(Device("A")), "~A1 | A1 A0 B0 A1 A0 A0 ");
  EXPECT_EQ(Watcher(false, 7, 1).hear(same), "+A0 | A0 ");
  EXPECT_EQ(Watcher(false, 8, 0).hear(same) + Watcher(false, kAnyDeviceType, 2).hear(same), "| | ");
}

TEST(DeviceFilter, TracksAvailability) {
  Watcher watcher(true);
  EXPECT_EQ(watcher.hear(Device("A", false)), "| ");
  for (const auto* const serialNumber : {"A", "B", "C"}) watcher.hear(Device(serialNumber));
  EXPECT_EQ(watcher.hear(Device("B", false)), "~B0 -B0 | A1 C0 ");  // the one after it counts as unavailable
  EXPECT_EQ(watcher.hear(Device("A", false)), "-A0 | C0 ");         // the one after it was that already
  EXPECT_EQ(watcher.hear(Device("C", false)), "-C0 | ");            // the last one, unavailable already
  EXPECT_EQ(watcher.hear(Device("D")), "+D1 | D1 ");
  EXPECT_EQ(watcher.hear(Device("D", false)), "~D0 -D0 | ");  // the last one, available
}

TEST(DeviceFilter, KeepsTheOrderOfAThousand) {
  Watcher watcher(true);
  std::string expected = "| ";
  for (int i = 0; i < 1000; ++i) watcher.filter.onDiscoverInfo(Device(std::to_string(i) + '#'));
  for (int i = 0; i < 1000; ++i) {
    if (i % 3 == 0) watcher.filter.onDiscoverInfo(Device(std::to_string(i) + '#', false));
    if (i % 3 != 0) expected += std::to_string(i) + (i % 3 == 1 ? "#0 " : "#1 ");
  }
  EXPECT_EQ(watcher.hear(Device("0#")), "+0#1 " + expected + "0#1 ");
}

TEST(DeviceFilter, SearchSweepsWhatWasNotHeardSinceTheRequest) {
  Watcher watcher(true, 7);
  for (const auto* const serialNumber : {"A", "B", "C", "D", "E"}) watcher.hear(Device(serialNumber));
  watcher.hear(Device("C", false, std::chrono::steady_clock::now() + 1h));  // D counts as heard with it
  EXPECT_THROW(watcher.filter.search(0ms, "SN"), InvalidOperationException);
  auto* const net = StartOnFake(*watcher.host);
  net->onSend = [&] { watcher.hear(Device("B", true, std::chrono::steady_clock::now())); };
  watcher.filter.search(0ms, "E");
  EXPECT_EQ(watcher.result(), "-E1 | A1 B1 D0 ") << "others were not asked";
  ASSERT_EQ(net->sent.size(), 1U);
  const auto& sent = net->sent[0];
  EXPECT_TRUE(sent.OpCode == 0x21 && sent.DeviceType == 7 && sent.SerialNumber == "E");
  watcher.filter.search(0ms, "");
  EXPECT_EQ(watcher.result(), "-A1 | B1 D0 ");

  net->onSend = [&] { watcher.reported.clear(); };
  const auto start = std::chrono::steady_clock::now();
  watcher.filter.search(30ms, "");
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
  EXPECT_EQ(watcher.result(), "-B1 | D0 ");
}

TEST(DeviceFilter, SearchesThatOverlapSpareWhatAnsweredTheOldest) {
  Watcher watcher(false);
  auto* const net = StartOnFake(*watcher.host);
  watcher.hear(Device("silent"));
  bool isInner = false;
  net->onSend = [&] {
    if (std::exchange(isInner, true)) return;
    watcher.hear(Device("A", true, std::chrono::steady_clock::now()));
    std::this_thread::sleep_for(1ms);  // the inner one begins after that answer
    watcher.filter.search(0ms, "");
    EXPECT_EQ(watcher.result(), "+A1 -silent1 | A1 ");
  };
  watcher.filter.search(0ms, "");
  EXPECT_EQ(watcher.result(), "+A1 -silent1 | A1 ");

  cppu::CancellableWait cancelled;
  cancelled.cancel();
  watcher.filter.search(1h, "", cancelled);
  EXPECT_EQ(watcher.result(), "+A1 -silent1 | A1 ") << "a cancelled search removes nothing";
}

TEST(DeviceFilter, ReportsInTheOrderInWhichItsListChanges) {
  const auto host = std::make_shared<Host>();
  StartOnFake(*host);
  std::string reported;
  std::future<bool> answer;
  DeviceFilter* filter = nullptr;
  const auto removed = [&](const DiscoverInfo& info) {
    if (!answer.valid()) {  // B is out of the list as well, but not reported yet
      answer = std::async(std::launch::async, [&] { return filter->onDiscoverInfo(Device("B")); });
      EXPECT_EQ(answer.wait_for(20ms), std::future_status::timeout);
    }
    reported += '-' + Name(info);
  };
  const auto added = [&](const DiscoverInfo& info) { reported += '+' + Name(info); };
  DeviceFilter watched(host, added, nullptr, removed, kAnyDeviceType, 0, false);
  filter = &watched;
  for (const auto* const serialNumber : {"A", "B"}) watched.onDiscoverInfo(Device(serialNumber));
  watched.search(0ms, "");
  answer.wait();
  EXPECT_EQ(reported, "+A1 +B1 -A1 -B1 +B1 ");
}

TEST(DeviceFilter, IgnoresWhatIsMoreThanAnyNetworkHas) {
  std::size_t added = 0;
  DeviceFilter filter(
      std::make_shared<Host>(), [&](const DiscoverInfo&) { ++added; }, nullptr, nullptr, kAnyDeviceType, 0,
      false);
  for (std::size_t i = 0; i <= KnownDevices::kMost; ++i) filter.onDiscoverInfo(Device(std::to_string(i)));
  EXPECT_EQ(added, KnownDevices::kMost);
  EXPECT_EQ(filter.devices().size(), KnownDevices::kMost);
}

TEST(DeviceFilter, HearsItsHostAndLeavesIt) {
  const auto host = std::make_shared<Host>();
  auto* const net = StartOnFake(*host);
  auto filter = std::make_unique<DeviceFilter>(host, nullptr, nullptr, nullptr, 7, 1, false);
  EXPECT_THROW(filter->onDiscoverInfo(Device("A")), std::bad_function_call);  // no callback
  net->announce("A");                                                         // known: nothing to report
  net->announce("B");
  ASSERT_TRUE(net->isDealtWith());
  EXPECT_EQ(filter->devices().size(), 2U);
  filter.reset();
  net->announce("C");
  EXPECT_TRUE(net->isDealtWith());
}

TEST(DeviceFilter, ReportsAgainWhatACallbackHadNoMemoryFor) {
  int failures = 0;
  std::string reported;
  const auto report = [&](const char* event) {
    return [&, event](const DiscoverInfo& info, auto... /*change*/) {
      if (failures-- > 0) throw std::bad_alloc();
      reported += event + Name(info);
    };
  };
  DeviceFilter filter(std::make_shared<Host>(), report("+"), report("~"), report("-"), kAnyDeviceType, 0,
                      false);
  for (const bool available : {true, false}) {
    failures = 1;
    EXPECT_THROW(filter.onDiscoverInfo(Device("A", available)), std::bad_alloc);
    filter.onDiscoverInfo(Device("A", available));
    filter.onDiscoverInfo(Device("A", available));
  }
  EXPECT_EQ(reported, "+A1 ~A0 ");
}

}  // namespace
}  // namespace quorvind
