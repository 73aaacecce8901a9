#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <random>

#include "unit/nd/fake_connection.h"
#include "util/unique_fd.h"

namespace quorvind {
namespace {

using namespace std::chrono_literals;

constexpr IP4 kLocal{127, 0, 0, 1};

/// Random bytes: other tests use the same group at the same time, so a datagram counts only with its mark.
Bytes Marked(std::size_t size) {
  Bytes data(size);
  std::random_device random;
  std::ranges::generate(data, [&] { return static_cast<uint8_t>(random()); });
  return data;
}

void SendToGroup(const Bytes& data) {
  const cppu::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const in_addr loopback{::inet_addr("127.0.0.1")};
  const sockaddr_in group{AF_INET, htons(65110), {::inet_addr("239.1.1.21")}, {}};
  const auto* const target = reinterpret_cast<const sockaddr*>(&group);
  ASSERT_EQ(::setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback), 0);
  ASSERT_GT(::sendto(socket.get(), data.data(), data.size(), 0, target, sizeof group), 0);
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

TEST(Connection, NamesItsNetworksAndRefusesOthers) {
  const auto connection = CreateConnection({kLocal});
  EXPECT_EQ(connection->NetworkName(0), "Broadcast (127.0.0.1), Multicast (127.0.0.1)");
  EXPECT_EQ(TextOf<InvalidArgumentException>([&] { static_cast<void>(connection->NetworkName(3)); }),
            "Network id out of range");
  EXPECT_EQ(TextOf<InvalidArgumentException>([&] { connection->Send(3, {}); }), "Network ID out of range");
  CreateConnection({})->Send(0, Bytes(96));
  EXPECT_FALSE(Received().from(*CreateConnection({}), 30));
  const auto text = TextOf<NetworkException>([] { CreateConnection({{192, 0, 2, 1}}); });
  EXPECT_TRUE(text.starts_with("Could not set outgoing interface to 192.0.2.1: ")) << text;
}

TEST(Connection, SendsAndReceivesOverEachInterface) {
  for (const auto& interface : {kLocal, IP4{127, 0, 0, 2}}) {
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
      EXPECT_TRUE(received.sender == kLocal && received.data == marked) << size;
    }
  }
}

TEST(Connection, CloseWakesAReceiverAndIsForGood) {
  const auto connection = CreateConnection({kLocal});
  const auto start = std::chrono::steady_clock::now();
  const auto receiving = std::async([&] {
    while (Received().from(*connection, 10000)) continue;
  });
  connection->Close(true);
  receiving.wait();
  const auto other = CreateConnection({kLocal});
  auto marked = Marked(96);
  connection->Send(2, marked);  // does nothing
  marked.back() ^= 1;
  SendToGroup(marked);
  EXPECT_EQ(ReceiveMarked(*other, marked).data, marked);
  EXPECT_FALSE(Received().from(*connection, 10000) || Received().from(*connection, 10000));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

}  // namespace
}  // namespace quorvind
