// qvio against simulated network controllers, each test in a network of its own where the system allows that.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "qvio/runner.h"
#include "support/discovery.h"
#include "support/private_network.h"

namespace qvtest {
namespace {

class QvioDiscovery : public testing::Test {
 protected:
  void SetUp() override {
    if (!network_.entered()) GTEST_SKIP() << PrivateNetwork::kForbidden;
    controllers_.emplace();
    firstPort_ = controllers_->add("T-1", 7, 1, "Left \x1b[31m axis");
    controllers_->add("T-2", 8, 2, "Right axis");
    (*controllers_)->setAvailable("T-2", false);
  }

  /// With time for the answer on a loaded machine. The type spares the search, which would take it all.
  static Words patiently(Words words, const std::string& type) {
    words.insert(words.end(), {"--type", type, "--timeout", "20000"});
    return words;
  }

  static Outcome run(Words words, const std::string& input = "") {
    words.insert(words.end(), {"--iface", kLoopback});
    return RunQvio(words, input);
  }

  PrivateNetwork network_;
  std::optional<Controllers> controllers_;
  uint16_t firstPort_ = 0;
};

TEST_F(QvioDiscovery, ListsDevicesForPeopleAndPrograms) {
  const auto table = run({"list", "--kind", "network", "--timeout", "300"});
  EXPECT_EQ(table.status, 0) << table.errors;
  EXPECT_NE(table.output.find("network:sn:T-1  network  T-1            yes        7     127.0.0.1:"),
            std::string::npos)
      << table.output;
  EXPECT_NE(table.output.find("Left \\x1B[31m axis"), std::string::npos) << "no tricks with the terminal";
  EXPECT_EQ(table.output.find("T-2"), std::string::npos) << "not available";
  EXPECT_NE(run({"list", "--kind", "network", "--timeout", "300", "--all"})
                .output.find("T-2            no         8"),
            std::string::npos);
  EXPECT_EQ(run({"list", "--kind", "network", "--timeout", "300", "--locators"}).output, "network:sn:T-1\n");

  const auto json =
      nlohmann::json::parse(run({"list", "--kind", "network", "--timeout", "300", "--json"}).output);
  ASSERT_EQ(json.size(), 1U);
  EXPECT_EQ(json[0]["network-port"], firstPort_);
  EXPECT_EQ(json[0]["available"], true);
  EXPECT_EQ(json[0]["device-info"], "Left \x1b[31m axis");
}

TEST_F(QvioDiscovery, OpensWhatItLists) {
  EXPECT_EQ(run({"send", "network:sn:T-1", "*IDN?"}).output, "QUORVI,DRV-SIM,T-1,1.0\r\n");
}

TEST_F(QvioDiscovery, FindsEveryDeviceAlthoughDatagramsGetLost) {
  (*controllers_)->setFaults({.drop = 0.3, .malformed = true});
  const auto outcome =
      run({"list", "--kind", "network", "--tries", "20", "--timeout", "1000", "--locators", "--all"});
  EXPECT_NE(outcome.output.find("T-1\n"), std::string::npos);
  EXPECT_NE(outcome.output.find("T-2\n"), std::string::npos);
}

TEST_F(QvioDiscovery, SaysWhatIsWrongAndWhatHelps) {
  (*controllers_)->setFaults({.refusal = quorvind::ResultCode::PermissionDenied});
  const Expected rows[] = {
      {{"list", "--kind", "network", "--iface", "x"},
       2,
       "x is not the address of an interface\nqvio: hint: \"qvio ifaces\""},
      {{"list", "--kind", "network", "--iface", "198.51.100.7"},
       1,
       "not a local address: 198.51.100.7\nqvio: hint: \"qvio ifaces\""},
      {{"list", "--kind", "network"}, 1, "no interface for discovery"},
      {{"list", "--kind", "network", "--tries", "0"}, 2, "--tries"},
      {{"list", "--kind", "network", "--iface", kLoopback, "--trace", "x"}, 2, "--trace"},
      {{"config", "get", "T-1", "--iface", kLoopback}, 1, "refused: PermissionDenied (31)"},
      {{"config", "get", "T-9", "--type", "7", "--timeout", "60", "--iface", kLoopback},
       124,
       "T-9 (type 7) has not answered"},
      {{"config", "get", "T-9", "--timeout", "60", "--iface", kLoopback},
       124,
       "T-9 has not answered a search"},
      {{"config", "reset", "T-1", "--type", "7", "--iface", kLoopback}, 2, "--yes"},
      {{"config", "set", "T-1", "--iface", kLoopback, "--yes"}, 2, "nothing to change"},
      {{"config", "set", "T-1", "--ip", "10.0.0.256", "--yes"}, 2, "is not an address"},
      {{"config", "set", "T-1", "--mask", "255.0.255.0", "--yes"}, 2, "is not a subnet mask"},
      {{"config", "set", "T-1", "--mask", "33", "--yes"}, 2, "is not a subnet mask"},
      {{"config", "set", "T-1", "--ip", "10.0.0.5", "--mask", "255.255.255.0", "--gateway", "10.0.1.1",
        "--yes"},
       2,
       "outside the subnet"},
      {{"info", "set", "T-1", "tab\there", "--yes"}, 2, "not all printable"},
      {{"info", "set", "T-1", std::string(64, 'x'), "--yes"}, 2, "longer than 63"},
      {{"send", "network:sn:T-9", "x"},
       1,
       "T-9 is known, and no interface to search\nqvio: hint: \"qvio list\""}};
  for (const auto& row : rows) ExpectText(row);
  controllers_.reset();
  const auto nothing = run({"list", "--kind", "network", "--timeout", "30", "--json"});
  EXPECT_EQ(nothing.status, 1);
  EXPECT_EQ(nothing.output, "[]\n");
  EXPECT_NE(nothing.errors.find("firewall lets UDP 65110 and 65111 in"), std::string::npos);
}

TEST_F(QvioDiscovery, ConfiguresADevice) {
  const auto configured = [&] { return run(patiently({"config", "get", "T-2"}, "8")).output; };
  const std::string preset =
      "ip       127.0.0.1\nmask     255.255.255.0\ngateway  127.0.0.254\ndhcp     off\n";
  EXPECT_EQ(configured(), preset);
  EXPECT_EQ(run({"config", "set", "T-2", "--ip", "127.0.0.9", "--mask", "16", "--yes"}).status, 0);
  EXPECT_EQ(configured(), "ip       127.0.0.9\nmask     255.255.0.0\ngateway  127.0.0.254\ndhcp     off\n");
  EXPECT_EQ(run(patiently({"config", "set", "T-2", "--dhcp", "--yes"}, "8")).status, 0);
  EXPECT_NE(
      run(patiently({"config", "set", "T-2", "--ip", "127.0.0.9", "--yes"}, "8")).errors.find("DHCP is on"),
      std::string::npos);
  const auto json = nlohmann::json::parse(run(patiently({"config", "get", "T-2", "--json"}, "8")).output);
  EXPECT_EQ(json["dhcp"], true);
  EXPECT_EQ(json["ip"], "127.0.0.9");
  EXPECT_EQ(run(patiently({"config", "reset", "T-2", "--yes"}, "8")).status, 0);
  EXPECT_EQ(configured(), preset);

  EXPECT_EQ(run(patiently({"info", "set", "T-1", "New axis", "--yes"}, "7")).status, 0);
  EXPECT_NE(run({"list", "--kind", "network", "--timeout", "300"}).output.find("New axis"),
            std::string::npos);
}

TEST_F(QvioDiscovery, AsksBeforeItChangesAnything) {
  for (const bool yes : {false, true}) {
    QvioTerminal terminal(
        patiently({"config", "set", "T-1", "--ip", "127.0.0.7", "--iface", kLoopback}, "7"));
    EXPECT_TRUE(terminal.shows("127.0.0.1 -> 127.0.0.7")) << terminal.screen();
    EXPECT_TRUE(terminal.shows("Change it? [y/N]"));
    terminal.type(yes ? "y\r" : "\r");
    EXPECT_TRUE(terminal.shows(yes ? ": configuration changed" : "nothing was changed"));
    EXPECT_EQ(terminal.waitForEnd(), yes ? 0 : 1);
    const auto configured = run(patiently({"config", "get", "T-1"}, "7")).output;
    EXPECT_EQ(configured.find("127.0.0.7") != std::string::npos, yes);
  }
}

TEST_F(QvioDiscovery, TracesTheProtocol) {
  const auto packets = run({"config", "get", "T-1", "--type", "7", "--trace", "packets"}).errors;
  EXPECT_NE(packets.find("Host sending packet over Broadcast (127.0.0.1), Multicast (127.0.0.1): "
                         "QV_ND_Packet { OpCode: Get Configuration"),
            std::string::npos)
      << packets;
  EXPECT_NE(
      packets.find(
          "Host got packet over Multicast (127.0.0.1) from 127.0.0.1: QV_ND_Packet { OpCode: Configuration"),
      std::string::npos)
      << packets;
  EXPECT_EQ(packets.find("QV_ND_RawPacket"), std::string::npos);
  EXPECT_NE(
      run({"list", "--kind", "network", "--timeout", "30", "--trace", "raw"}).errors.find("raw packet over"),
      std::string::npos);
}

TEST_F(QvioDiscovery, WatchesUntilInterrupted) {
  QvioTerminal terminal({"watch", "--iface", kLoopback, "--rescan", "1"});
  EXPECT_TRUE(terminal.shows("found        network:sn:T-1"));
  (*controllers_)->setAvailable("T-1", false);
  EXPECT_TRUE(terminal.shows("unavailable  network:sn:T-1"));
  (*controllers_)->setAvailable("T-1", true);
  EXPECT_TRUE(terminal.shows("found        network:sn:T-1"));
  (*controllers_)->vanish("T-1");
  EXPECT_TRUE(terminal.shows("lost         network:sn:T-1"));
  ::kill(terminal.pid(), SIGINT);
  EXPECT_EQ(terminal.waitForEnd(), 0);
}

TEST_F(QvioDiscovery, KeepsATableUpToDate) {
  QvioTerminal terminal({"watch", "--iface", kLoopback, "--rescan", "1", "--live"});
  EXPECT_TRUE(terminal.shows("\x1b[H\x1b[J2 devices; Ctrl-C leaves\r\nSTATE"));
  (*controllers_)->setAvailable("T-1", false);
  EXPECT_TRUE(terminal.shows("\nunavailable"));
  EXPECT_TRUE(terminal.shows("network:sn:T-1"));
  ::kill(terminal.pid(), SIGINT);
  EXPECT_EQ(terminal.waitForEnd(), 0);
  EXPECT_EQ(RunQvio({"watch", "--live"}).status, 2) << "no terminal";
}

TEST_F(QvioDiscovery, KeepsQuietAboutWhatSettles) {
  QvioTerminal terminal({"watch", "--iface", kLoopback, "--rescan", "0", "--settle", "60000", "--json"});
  EXPECT_TRUE(terminal.shows(R"("device-sn":"T-1")"));
  (*controllers_)->setAvailable("T-1", false);
  (*controllers_)->setAvailable("T-1", true);
  controllers_->add("T-3");
  EXPECT_TRUE(terminal.shows(R"("device-sn":"T-3")"));
  EXPECT_EQ(terminal.screen().find(R"("event":"unavailable")"), std::string::npos) << terminal.screen();
  auto time = terminal.screen().substr(terminal.screen().find(R"("time":")") + 8, 29);
  std::ranges::replace_if(
      time, [](char c) { return c >= '0' && c <= '9'; }, '0');
  EXPECT_TRUE(time == "0000-00-00T00:00:00.000+00:00" || time == "0000-00-00T00:00:00.000-00:00") << time;
  ::kill(terminal.pid(), SIGTERM);
  EXPECT_EQ(terminal.waitForEnd(), 0);
}

}  // namespace
}  // namespace qvtest
