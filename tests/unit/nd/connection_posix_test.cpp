// Other tests use the same group and ports at the same time: a datagram counts only with its mark.

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <random>

#include "unit/nd/fake_connection.h"
#include "util/unique_fd.h"

namespace quorvind {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr IP4 kFirst{127, 0, 0, 1};
constexpr IP4 kSecond{127, 0, 0, 2};

/// Random bytes that no other test sends.
Bytes Marked(std::size_t size) {
  Bytes data(size);
  std::random_device random;
  std::ranges::generate(data, [&] { return static_cast<uint8_t>(random()); });
  return data;
}

/// Sends to the multicast group from a socket of its own.
void SendToGroup(const Bytes& data) {
  const cppu::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const in_addr loopback{::inet_addr("127.0.0.1")};
  const sockaddr_in group{AF_INET, htons(65110), {::inet_addr("239.1.1.21")}, {}};
  ASSERT_EQ(::setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback), 0);
  ASSERT_GT(::sendto(socket.get(), data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&group),
                     sizeof group),
            0);
}

struct Received {
  bool from(Connection& connection, int64_t timeoutMs) {
    return connection.Receive(networkId, sender, data, timeoutMs);
  }
  uint32_t networkId = 0;
  IP4 sender{};
  Bytes data;
};

/// The next datagram on the multicast network that begins like the marked one.
Received ReceiveMarked(Connection& connection, const Bytes& marked) {
  Received received;
  EXPECT_TRUE(qvtest::Eventually([&] {
    return received.from(connection, 1000) && received.networkId == 2 && received.data.size() > 16 &&
           std::equal(marked.begin(), marked.begin() + 16, received.data.begin());
  }));
  return received;
}

TEST(Connection, NumbersItsNetworksInTheOrderOfTheSet) {
  const IP4Set interfaces{kFirst, kSecond};
  const auto connection = CreateConnection(interfaces);
  std::string all;
  for (const auto& interface : interfaces)
    all += ", Broadcast (" + IP4ToString(interface) + "), Multicast (" + IP4ToString(interface) + ")";
  EXPECT_EQ(", " + connection->NetworkName(0), all);
  std::string each;
  for (uint32_t id = 1; id <= 4; ++id) each += ", " + connection->NetworkName(id);
  EXPECT_EQ(each, all);
  EXPECT_EQ(TextOf<InvalidArgumentException>([&] { static_cast<void>(connection->NetworkName(5)); }),
            "Network id out of range");
  EXPECT_EQ(TextOf<InvalidArgumentException>([&] { connection->Send(5, Bytes(4)); }),
            "Network ID out of range");
  const auto none = CreateConnection({});
  none->Send(0, Bytes(96));
  const auto start = steady_clock::now();
  EXPECT_TRUE(none->NetworkName(0).empty() && !Received().from(*none, 30));
  EXPECT_GE(steady_clock::now() - start, 30ms);
  const auto text = TextOf<NetworkException>([] { CreateConnection({{192, 0, 2, 1}}); });
  EXPECT_TRUE(text.starts_with("Could not set outgoing interface to 192.0.2.1: ")) << text;
}

TEST(Connection, SendsAndReceivesOverEachInterface) {
  for (const auto& interface : {kFirst, kSecond}) {
    const auto connection = CreateConnection({interface});
    for (const uint32_t id : {0U, 2U}) {
      const auto marked = Marked(96);
      connection->Send(id, marked);
      const auto received = ReceiveMarked(*connection, marked);
      EXPECT_TRUE(received.sender == interface && received.data == marked) << id;
    }
    for (const std::size_t size : {1500U, 1024U, 100U}) {
      auto marked = Marked(size);
      SendToGroup(marked);
      const auto received = ReceiveMarked(*connection, marked);
      marked.resize(std::min<std::size_t>(size, 1024));
      EXPECT_TRUE(received.sender == kFirst && received.data == marked) << size;
    }
  }
}

TEST(Connection, CloseWakesAReceiverForGood) {
  const auto connection = CreateConnection({kFirst});
  auto receiver = std::async(std::launch::async, [&] {
    while (Received().from(*connection, 600000)) continue;
  });
  connection->Close(false);
  connection->Close(true);  // returns when the receiver has left
  EXPECT_EQ(receiver.wait_for(qvtest::kGenerous), std::future_status::ready);
  EXPECT_FALSE(Received().from(*connection, 600000));

  const auto other = CreateConnection({kFirst});
  auto marked = Marked(96);
  connection->Send(2, marked);  // does nothing
  connection->Send(99, marked);
  marked.back() ^= 1;
  SendToGroup(marked);
  EXPECT_EQ(ReceiveMarked(*other, marked).data, marked);
}

}  // namespace
}  // namespace quorvind
