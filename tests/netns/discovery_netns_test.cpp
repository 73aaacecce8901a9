// What needs interfaces of its own: true broadcast, several interfaces, those that go down, vanish or stall.

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <future>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "nd/connection.h"
#include "nd/errors.h"
#include "support/channel.h"
#include "support/discovery.h"
#include "support/private_network.h"
#include "util/unique_fd.h"

namespace qvtest {
namespace {

constexpr const char* kFirst = "10.77.1.1";
constexpr const char* kSecond = "10.77.2.1";

class DiscoveryInterfaces : public testing::Test {
 protected:
  void SetUp() override {
    if (!network_.entered()) GTEST_SKIP() << PrivateNetwork::kForbidden;
    ASSERT_TRUE(PrivateNetwork::addPair("qvA", kFirst));
    ASSERT_TRUE(PrivateNetwork::addPair("qvB", kSecond));
  }

 private:
  PrivateNetwork network_;
};

void SendText(quorvind::Connection& connection, uint32_t network, const std::string& text) {
  connection.Send(network, quorvind::Bytes(text.begin(), text.end()));
}

/// The next datagram, as "2 TEXT" for one that came in on network 2.
std::string Next(quorvind::Connection& connection) {
  uint32_t network = 0;
  quorvind::IP4 sender{};
  quorvind::Bytes data;
  if (!connection.Receive(network, sender, data, 20000)) return "nothing";
  return std::to_string(network) + ' ' + std::string(data.begin(), data.end());
}

/// The next datagrams, in any order: networks are not ordered among each other.
std::multiset<std::string> Next(quorvind::Connection& connection, std::multiset<std::string> heard,
                                std::size_t count) {
  while (heard.size() < count) heard.insert(Next(connection));
  return heard;
}

std::unique_ptr<quorvind::Connection> Connect(const std::string& address) {
  return quorvind::CreateConnection({*quorvind::IP4FromString(address)});
}

std::string Locators(const std::string& iface) {
  return ListDevices(iface, "include-iface\ninclude-device-sn\ndiscovery-timeout 300").text;
}

TEST_F(DiscoveryInterfaces, AreListedWithAddressAndMask) {
  ASSERT_TRUE(PrivateNetwork::addPair("qvC", "10.77.3.1"));
  ASSERT_TRUE(PrivateNetwork::ip("link set qvC down"));
  ASSERT_TRUE(PrivateNetwork::ip("link set qvB multicast off"));  // broadcast is left
  uint32_t result = 0;
  const auto list = [](const char* options) {
    return [=](char* buffer, std::size_t* size) { return QV_IO_EnumerateInterfaces(options, buffer, size); };
  };
  EXPECT_EQ(ListingText(list("iface-type network\ninclude-all"), result),
            "iface-type=network|name=qvA|network-host=10.77.1.1|network-subnet-mask=255.255.255.0\n"
            "iface-type=network|name=qvB|network-host=10.77.2.1|network-subnet-mask=255.255.255.0");
  EXPECT_EQ(ListingText(list("iface-type network\nonly-name"), result), "qvA\nqvB");
  ListingText(list("iface-type all"), result);
  EXPECT_EQ(result, QV_IO_ERROR_NOT_SUPPORTED);
}

TEST_F(DiscoveryInterfaces, BroadcastToWhatTheirAddressHas) {
  const struct {
    const char* address;
    bool hasBroadcast;
  } rows[] = {{"10.77.9.1/24 broadcast 10.77.9.255", true},
              {"10.77.9.1/24", true},  // the system reports the address itself
              {"10.77.9.1/30", true},
              {"10.77.9.1/31", false},
              {"10.77.9.1 peer 10.77.9.2", false},  // the system reports the peer
              {"10.77.9.1 peer 10.77.9.2/24", false},
              {"10.77.9.1 peer 10.77.2.1", false}};  // which is on this machine
  for (const auto& row : rows) {
    ASSERT_TRUE(PrivateNetwork::addPairWith("qvC", row.address)) << row.address;
    const auto host = Connect("10.77.9.1");
    const auto device = Connect("10.77.9.1");
    SendText(*device, 1, "broadcast");
    SendText(*device, 0, "all");
    std::multiset<std::string> heard{"2 all"};
    if (row.hasBroadcast) heard.insert({"1 all", "1 broadcast"});
    EXPECT_EQ(Next(*host, {}, heard.size()), heard) << row.address;
    ASSERT_TRUE(PrivateNetwork::ip("link del qvC"));
  }
}

TEST_F(DiscoveryInterfaces, HearTheirOwnDevicesOnly) {
  ASSERT_TRUE(PrivateNetwork::addPair("qvC", "10.77.1.2"));  // in the subnet of the first
  const auto loopback = Connect("127.0.0.1");
  const auto host = Connect(kFirst);
  const auto device = Connect(kFirst);
  const auto neighbour = Connect("10.77.1.2");
  SendText(*neighbour, 1, "from the neighbour");
  SendText(*device, 1, "from the device");
  EXPECT_EQ(Next(*host), "1 from the device");
  EXPECT_EQ(Next(*neighbour), "1 from the neighbour");

  const cppu::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in target{AF_INET, htons(65111), {::inet_addr("127.0.0.1")}, {}};
  ASSERT_EQ(::sendto(socket.get(), "mine", 4, 0, reinterpret_cast<const sockaddr*>(&target), sizeof target),
            4);
  EXPECT_EQ(Next(*loopback), "1 mine") << "what was broadcast elsewhere came first";
}

/// Whether the network takes the text.
bool IsSent(quorvind::Connection& connection, uint32_t network, const std::string& text) try {
  SendText(connection, network, text);
  return true;
} catch (const quorvind::NetworkException&) {
  return false;
}

/// Sends until the network's queue is full. Whether that was reported.
bool Fill(quorvind::Connection& connection, uint32_t network) {
  int left = 100000;
  while (left > 0 && IsSent(connection, network, std::string(1000, 'x'))) --left;
  return left > 0;
}

TEST_F(DiscoveryInterfaces, FailAtOnceWhenTheirQueueIsFullAndLeaveTheOthersAlone) {
  if (!PrivateNetwork::run("tc qdisc add dev qvA root tbf rate 8bit burst 2000 limit 10mb"))
    GTEST_SKIP() << "this system cannot hold a queue";
  const auto host = Connect(kFirst);
  const auto device = Connect(kFirst);
  ASSERT_TRUE(Fill(*device, 1));
  SendText(*device, 0, "request");  // sent by multicast, which this machine hears before the queue
  auto heard = Next(*host);
  while (heard.starts_with("1 x")) heard = Next(*host);
  EXPECT_EQ(heard, "2 request");
  ASSERT_TRUE(Fill(*device, 2));
  EXPECT_FALSE(IsSent(*device, 0, "request"));
}

TEST_F(DiscoveryInterfaces, AreHeardInTurnDuringAFlood) {
  const auto host = Connect(kFirst);
  const auto device = Connect(kFirst);
  for (int i = 0; i < 100; ++i) SendText(*device, 1, "flood");
  SendText(*device, 2, "answer");
  while (Next(*device) != "2 answer") continue;  // then the host has it too
  int before = 0;
  while (Next(*host) == "1 flood") ++before;
  EXPECT_LT(before, 50);
}

const std::multiset<std::string> kSearch{"1 search", "2 search"};

TEST_F(DiscoveryInterfaces, AreOpenedAgainWhenTheyWereReplaced) {
  const struct {
    bool missedInBetween;
    bool searched;
  } rows[] = {{true, true}, {false, true}, {false, false}};
  const auto host = Connect(kFirst);
  for (const auto& row : rows) {
    auto receiver = std::async(std::launch::async, [&] { return Next(*host); });
    ASSERT_TRUE(PrivateNetwork::ip("link del qvA"));
    EXPECT_TRUE(!row.missedInBetween || !IsSent(*host, 0, "search"));
    ASSERT_TRUE(PrivateNetwork::addPair("qvA", kFirst));
    const auto device = Connect(kFirst);
    if (row.searched) {
      SendText(*host, 0, "search");
      EXPECT_EQ(Next(*host, {receiver.get()}, 2), kSearch);
      SendText(*device, 2, "answer");
      EXPECT_EQ(Next(*host), "2 answer");
    } else {
      EXPECT_TRUE(Eventually([&] {
        SendText(*device, 2, "announcement");
        return receiver.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
      }));
      EXPECT_EQ(receiver.get(), "2 announcement");
    }
  }
}

TEST_F(DiscoveryInterfaces, MayBeReplacedUnderRunningCalls) {
  const auto host = Connect(kFirst);
  std::atomic<bool> done = false;
  std::vector<std::thread> threads;
  threads.reserve(2);
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      while (!done) Next(*host);
    });
  }
  for (const uint32_t network : {0U, 1U, 2U}) {
    threads.emplace_back([&, network] {
      while (!done) IsSent(*host, network, "busy");
    });
  }
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(PrivateNetwork::ip("link del qvA"));
    EXPECT_TRUE(PrivateNetwork::addPair("qvA", kFirst));
  }
  host->Close(true);
  done = true;
  for (auto& thread : threads) thread.join();
}

TEST_F(DiscoveryInterfaces, ShowWhereADeviceWasHeard) {
  Controllers first(kFirst);
  Controllers second(kSecond);
  first.add("ONLY-A");
  first.add("BOTH");
  second.add("BOTH");
  EXPECT_EQ(ListDevices("10.77.1.1", "include-iface\ndiscovery-timeout 300\nfind-device-sn ONLY-A").text,
            "iface=network:10.77.1.1");
  EXPECT_EQ(ListDevices("10.77.2.1", "include-iface\ndiscovery-timeout 300\nfind-device-sn ONLY-A").text, "");
  const auto both = ListDevices("all", "include-iface\ndiscovery-timeout 300\nfind-device-sn BOTH").text;
  EXPECT_NE(both.find("iface=network:10.77.1.1"), std::string::npos) << both;
  EXPECT_NE(both.find("iface=network:10.77.2.1"), std::string::npos) << both;
  EXPECT_EQ(std::ranges::count(both, '\n'), 1);
}

TEST_F(DiscoveryInterfaces, AreWatchedOnAfterTheyWereDownOrReplaced) {
  const EventRecorder recorder("AWAY");
  ASSERT_TRUE(PrivateNetwork::ip("link set qvB down"));
  EXPECT_EQ(ListDevices(kSecond).text, "");  // down at first
  ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:10.77.1.1"), QV_IO_OK);
  for (const bool replaced : {false, true}) {
    std::optional<Controllers> controllers(std::in_place, kFirst);
    auto port = controllers->add("AWAY");
    const auto listed = [&] {
      return ListDevices(kFirst, "include-network-port\ndiscovery-timeout 300").text;
    };
    EXPECT_TRUE(Eventually([&] { return listed() == "network-port=" + std::to_string(port); }));
    const auto known = recorder.events().size();
    if (replaced) controllers.reset();
    ASSERT_TRUE(PrivateNetwork::ip(replaced ? "link del qvA" : "link set qvA down"));
    EXPECT_EQ(listed(), "network-port=" + std::to_string(port))
        << "a request that could not be sent proves nothing";

    ASSERT_TRUE(replaced ? PrivateNetwork::addPair("qvA", kFirst) : PrivateNetwork::ip("link set qvA up"));
    if (replaced) {
      port = controllers.emplace(kFirst).add("AWAY");
    } else {
      (*controllers)->setAvailable("AWAY", false);
      EXPECT_TRUE(Eventually([&] { return recorder.events().size() > known; })) << "without a search";
      (*controllers)->setAvailable("AWAY", true);
    }
    EXPECT_TRUE(Eventually([&] { return listed() == "network-port=" + std::to_string(port); }));
    // Or more: an announcement comes on two networks, of which the second may bring the older one later.
    EXPECT_TRUE(Eventually([&] { return recorder.events().size() >= known + 2; })) << "lost and found";
  }
}

TEST_F(DiscoveryInterfaces, MayHaveNoDevicesOrNotBeThere) {
  EXPECT_EQ(Locators("all"), "");
  ASSERT_TRUE(PrivateNetwork::ip("link del qvA"));
  ASSERT_TRUE(PrivateNetwork::ip("link del qvB"));
  const auto none = ListDevices("all");
  EXPECT_EQ(none.result, QV_IO_OK);
  EXPECT_EQ(none.text, "");
  EXPECT_EQ(OpenResult("network:sn:X", "iface network:all"), QV_IO_ERROR_DEVICE_NOT_FOUND);
  EXPECT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:10.77.1.1"), QV_IO_ERROR_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace qvtest
