// What needs interfaces of its own: true broadcast, several interfaces, one that goes down.

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "nd/connection.h"
#include "nd/errors.h"
#include "support/channel.h"
#include "support/discovery.h"
#include "support/private_network.h"

namespace qvtest {
namespace {

constexpr const char* kFirst = "10.77.1.1";
constexpr const char* kSecond = "10.77.2.1";

class DiscoveryInterfaces : public testing::Test {
 protected:
  void SetUp() override {
    if (!network_.entered()) GTEST_SKIP() << "this system forbids private network namespaces";
    ASSERT_TRUE(PrivateNetwork::addPair("qvA", kFirst));
    ASSERT_TRUE(PrivateNetwork::addPair("qvB", kSecond));
  }

 private:
  PrivateNetwork network_;
};

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

TEST_F(DiscoveryInterfaces, CarryBroadcastAndMulticastEachOnItsOwn) {
  const auto host = quorvind::CreateConnection({{10, 77, 1, 1}});
  const auto device = quorvind::CreateConnection({{10, 77, 1, 1}});
  const auto elsewhere = quorvind::CreateConnection({{10, 77, 2, 1}});
  for (const uint32_t network : {1U, 2U}) {
    const quorvind::Bytes sent{'o', 'n', static_cast<uint8_t>(network)};
    device->Send(network, sent);
    uint32_t heardOn = 0;
    quorvind::IP4 sender{};
    quorvind::Bytes got;
    ASSERT_TRUE(host->Receive(heardOn, sender, got, 20000));
    EXPECT_EQ(heardOn, network);
    EXPECT_EQ(sender, (quorvind::IP4{10, 77, 1, 1}));
    EXPECT_EQ(got, sent);
    EXPECT_FALSE(elsewhere->Receive(heardOn, sender, got, 50)) << "another interface";
  }
}

TEST_F(DiscoveryInterfaces, TellWhereADeviceWasHeard) {
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

TEST_F(DiscoveryInterfaces, AreHeardAgainAfterTheyWereDown) {
  const EventRecorder recorder("UP-AND-DOWN");
  ASSERT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:10.77.1.1"), QV_IO_OK);
  Controllers controllers(kFirst);
  controllers.add("UP-AND-DOWN");
  EXPECT_TRUE(Eventually([&] { return recorder.events().size() == 1; }));

  ASSERT_TRUE(PrivateNetwork::ip("link set qvA down"));
  const auto down = ListDevices(kFirst, "only-locator\ndiscovery-timeout 100");
  EXPECT_EQ(down.result, QV_IO_OK);
  EXPECT_EQ(down.text, "network:sn:UP-AND-DOWN") << "a request that could not be sent proves nothing";

  ASSERT_TRUE(PrivateNetwork::ip("link set qvA up"));
  controllers->setAvailable("UP-AND-DOWN", false);
  EXPECT_TRUE(Eventually([&] { return recorder.events().size() == 2; }))
      << "heard by the socket that there was";
  controllers->setAvailable("UP-AND-DOWN", true);
  EXPECT_TRUE(Eventually([&] {
    return ListDevices(kFirst, "only-locator\ndiscovery-timeout 100").text == "network:sn:UP-AND-DOWN";
  }));
}

TEST_F(DiscoveryInterfaces, MayHaveNoDevicesOrNotBeThere) {
  EXPECT_EQ(Locators("all"), "");
  ASSERT_TRUE(PrivateNetwork::ip("link del qvA"));
  ASSERT_TRUE(PrivateNetwork::ip("link del qvB"));
  const auto none = ListDevices("all");
  EXPECT_EQ(none.result, QV_IO_OK);
  EXPECT_EQ(none.text, "");
  EXPECT_EQ(Channel("network:sn:X", "iface network:all").result(), QV_IO_ERROR_DEVICE_NOT_FOUND);
  EXPECT_EQ(QV_IO_SetGlobalOptions("discovery-iface network:10.77.1.1"), QV_IO_ERROR_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace qvtest
