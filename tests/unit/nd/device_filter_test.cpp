#include "nd/device_filter.h"

#include <gtest/gtest.h>

#include "unit/nd/fake_connection.h"

namespace quorvind {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

DiscoverInfo Device(const char* serialNumber, bool available = true, steady_clock::time_point lastSeen = {}) {
  return {7, serialNumber, {10, 0, 0, 9}, 1, 5000, available, "", lastSeen};
}

std::string Name(const DiscoverInfo& info) { return info.SerialNumber + (info.Available ? "1 " : "0 "); }

/// A filter that notes what it tells: "+A1 " added, available; "~A0 " changed; "-A0 " removed.
struct Watcher {
  auto tell(const std::string& event) {
    return [this, event](const DiscoverInfo& info, auto... /*change*/) {
      told += event + Name(info);
      static_cast<void>(filter.devices());  // no lock is held
    };
  }
  explicit Watcher(bool tracksAvailability, uint32_t type = kAnyDeviceType, uint8_t protocolId = 0)
      : filter(host, tell("+"), tell("~"), tell("-"), type, protocolId, tracksAvailability) {}
  /// What it tells of an answer, and what it knows then.
  std::string hear(const DiscoverInfo& info) {
    told.clear();
    EXPECT_TRUE(filter.onDiscoverInfo(info));
    return result();
  }
  [[nodiscard]] std::string result() const {
    auto text = told + "| ";
    for (const auto& info : filter.devices()) text += Name(info);
    return text;
  }
  std::shared_ptr<Host> host = std::make_shared<Host>();
  std::string told;
  DeviceFilter filter;
};

TEST(DeviceFilter, IdentityDecidesWhatIsANewDevice) {
  const DiscoverInfo same{7, "A", {10, 0, 0, 9}, 1, 5000, false, "info", {}, true};
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
  EXPECT_EQ(watcher.hear(Device("A")), "~A1 | A1 A0 B0 A1 A0 A0 ");
  EXPECT_EQ(Watcher(false, 7, 1).hear(same), "+A0 | A0 ");
  EXPECT_EQ(Watcher(false, 8, 0).hear(same) + Watcher(false, kAnyDeviceType, 2).hear(same), "| | ");
}

TEST(DeviceFilter, TracksAvailability) {
  Watcher watcher(true);
  EXPECT_EQ(watcher.hear(Device("A", false)), "| ");
  for (const auto* const serialNumber : {"A", "B", "C"}) watcher.hear(Device(serialNumber));
  EXPECT_EQ(watcher.hear(Device("B", false)), "~B0 -B0 | A1 C0 ");  // the one behind it counts as unavailable
  EXPECT_EQ(watcher.hear(Device("A", false)), "-A0 | C0 ");         // the one behind it was that already
  EXPECT_EQ(watcher.hear(Device("C", false)), "-C0 | ");            // the last one, unavailable already
  watcher.hear(Device("D"));
  EXPECT_EQ(watcher.hear(Device("D", false)), "~D0 -D0 | ");  // the last one, available
}

TEST(DeviceFilter, SearchSweepsWhatWasNotHeardSinceTheRequest) {
  Watcher watcher(true, 7);
  for (const auto* const serialNumber : {"A", "B", "C", "D", "E"}) watcher.hear(Device(serialNumber));
  watcher.hear(Device("C", false, steady_clock::now() + 1h));  // D counts as heard with it
  auto* const net = StartOnFake(*watcher.host);
  net->onSend = [&] { watcher.hear(Device("B", true, steady_clock::now())); };
  watcher.filter.search(0ms, "SN");
  EXPECT_EQ(watcher.result(), "-A1 -E1 | B1 D0 ");
  const auto& sent = net->sent.at(0);
  EXPECT_TRUE(net->sent.size() == 1 && sent.OpCode == 0x21 && sent.DeviceType == 7 &&
              sent.SerialNumber == "SN");
}

}  // namespace
}  // namespace quorvind
