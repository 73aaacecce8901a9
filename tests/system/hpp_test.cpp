// quorvio.hpp: what it adds to the C functions, and that no order of callback, close, move and end hurts.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quorvio/quorvio.hpp"
#include "support/channel.h"
#include "support/discovery.h"
#include "support/links.h"
#include "support/raw_peer.h"
#include "support/recorded_channel.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;
using quorvio::Errc;
using quorvio::Options;

TEST(Hpp, ReadsAndAsksOverEveryLink) {
  for (const auto kind : {LinkKind::Serial, LinkKind::Tcp}) {
    const EchoLink link(kind);
    const auto channel = Open(link);
    channel.send("late\r\nrest");
    EXPECT_TRUE(Eventually([&] { return channel.available() == 10; }));
    EXPECT_EQ(channel.query("one\r\n", "\r\n", kGenerous), "one") << "not the late answer";
    channel.send(std::string_view("ab\0d\r\nefg", 9));
    EXPECT_EQ(channel.readUntil("\r\n", kGenerous), std::string_view("ab\0d", 4));
    EXPECT_EQ(channel.readExactly(2, kGenerous), "ef");
    EXPECT_EQ(CodeOf([&] { (void)channel.readExactly(2, 0ms); }), Errc::timedOut);
    EXPECT_EQ(CodeOf([&] { (void)channel.readUntil("\r\n", 1ms); }), std::errc::timed_out);
    EXPECT_EQ(channel.read(kGenerous), "g") << "a time-out keeps what has come";
    EXPECT_EQ(channel.read(), "");
    EXPECT_EQ(CodeOf([&] { (void)channel.readUntil("", 0ms); }), Errc::invalidArgument);
    const auto withoutProperties =
        kind == LinkKind::Tcp ? make_error_code(Errc::propertyUnavailable) : std::error_code();
    EXPECT_EQ(CodeOf([&] { EXPECT_EQ(channel.property("any"), ""); }), withoutProperties);
  }
}

TEST(Hpp, ReadsBytesBeforeTheLossAndKnowsOneLossOnly) {
  RawPeer peer(LinkKind::Tcp);
  const auto channel = Open(peer);
  peer.send("last words");
  peer.close();
  EXPECT_EQ(channel.waitLost(kGenerous), make_error_code(Errc::connectionLost));
  EXPECT_EQ(channel.readUntil(" ", kGenerous), "last");
  EXPECT_EQ(CodeOf([&] { (void)channel.readUntil(" ", kGenerous); }), Errc::connectionLost);
  EXPECT_EQ(channel.readExactly(5, kGenerous), "words");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(CodeOf([&] { (void)channel.read(kGenerous); }), Errc::connectionLost);

  RawPeer second(LinkKind::Tcp);
  RawPeer third(LinkKind::Tcp);
  std::atomic<int> losses = 0;
  const quorvio::Channel reported(second.locator(), {}, {}, [&](std::error_code) { ++losses; });
  const RecordedChannel all(third.locator());
  second.reset();
  EXPECT_TRUE(Eventually([&] { return losses == 1; }));
  third.reset();
  EXPECT_TRUE(all.isNotified(QV_IO_ERROR_CONNECTION_LOST, 20));
  EXPECT_EQ(losses, 1);
}

TEST(Hpp, WaitsForRoomInAFullBuffer) {
  const std::string sent(1000, 'x');  // one call of the receive callback
  const struct {
    const char* name;
    std::function<void(quorvio::Channel&, RawPeer&)> use;
  } rows[] = {
      {"reads in pieces",
       [&](auto& channel, auto& /*peer*/) {
         std::string all;
         while (all.size() < sent.size()) all += channel.read(kGenerous);
         EXPECT_EQ(all, sent);
       }},
      {"reads more than the buffer holds",
       [&](auto& channel, auto& /*peer*/) { EXPECT_EQ(channel.readExactly(sent.size(), kGenerous), sent); }},
      {"finds no terminator",
       [](auto& channel, auto& /*peer*/) {
         EXPECT_EQ(CodeOf([&] { (void)channel.readUntil("\n", kGenerous); }), Errc::bufferTooSmall);
       }},
      {"discards",
       [](auto& channel, auto& peer) {
         channel.discard();  // what waits for room as well
         peer.send("!");
         EXPECT_EQ(channel.readExactly(1, kGenerous), "!");
       }},
      {"closes", [](auto& channel, auto& /*peer*/) { channel.close(); }}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RawPeer peer(LinkKind::Tcp);
    auto channel = Open(peer, 16);
    peer.send(sent);
    EXPECT_TRUE(Eventually([&] { return channel.available() == 16; }));
    row.use(channel, peer);
  }
}

TEST(Hpp, WakesEveryoneWhenAnotherThreadCloses) {
  EchoLink link(LinkKind::Tcp);
  link.setReading(qvsim::Reading::Discarding);
  const std::function<void(quorvio::Channel&)> members[] = {
      [](auto& channel) { (void)channel.read(kGenerous); },
      [](auto& channel) { (void)channel.readExactly(1, kGenerous); },
      [](auto& channel) { (void)channel.query("x", "y", kGenerous); },
      [](auto& channel) { (void)channel.waitLost(kGenerous); },
      [](auto& channel) { throw quorvio::Error(Errc::invalidHandle, channel.property("none")); }};
  for (int round = 0; round < 20; ++round) {
    quorvio::Channel channel(link.locator());
    std::latch begun(std::size(members));
    std::vector<std::future<std::error_code>> woken;
    for (const auto& member : members) {
      woken.push_back(std::async(std::launch::async, [&] {
        begun.count_down();
        return CodeOf([&] { member(channel); });
      }));
    }
    begun.wait();
    channel.close();
    for (auto& code : woken) {
      const auto result = code.get();
      EXPECT_TRUE(result == Errc::invalidHandle || result == Errc::propertyUnavailable ||
                  result == Errc::transmitFailed)
          << result.message();
    }
    EXPECT_FALSE(channel.isOpen());
  }
}

TEST(Hpp, DestroysTenThousandChannelsInsideTheirOwnCallbacks) {
  RawPeer peer(LinkKind::Tcp);
  for (int i = 0; i < 10000; ++i) {
    std::unique_ptr<quorvio::Channel> channel;
    const auto held = std::make_shared<int>(i);
    std::latch assigned(1);
    std::promise<void> gone;
    const bool byLoss = i % 2 == 0;
    const auto destroy = [&channel, &assigned, &gone, held](auto&&...) {
      assigned.wait();
      channel.reset();
      EXPECT_GT(held.use_count(), 1) << "what the callback holds is there until it returns";
      gone.set_value();
    };
    if (byLoss) {
      channel = std::make_unique<quorvio::Channel>(peer.locator(), Options(), quorvio::OnReceive(), destroy);
      assigned.count_down();
      ASSERT_GE(peer.fd(), 0);
      peer.reset();
    } else {
      channel = std::make_unique<quorvio::Channel>(peer.locator(), Options(), destroy);
      assigned.count_down();
      ASSERT_EQ(::send(peer.fd(), "x", 1, MSG_NOSIGNAL), 1);
    }
    gone.get_future().wait();
    ASSERT_EQ(channel, nullptr);
    if (!byLoss) peer.reset();
  }
}

TEST(Hpp, ReleasesWhatCallbacksHoldBeforeTheCloseReturns) {
  const EchoLink link(LinkKind::Tcp);
  auto held = std::make_shared<quorvio::Channel>();
  const std::weak_ptr<quorvio::Channel> watched = held;
  std::latch received(1);
  std::latch closing(1);
  *held = quorvio::Channel(link.locator(), {}, [held, &received, &closing](std::string_view) {
    held->close();  // a later close still waits for this callback
    received.count_down();
    closing.wait();
  });
  held->send("x");
  received.wait();
  auto closed = std::async(std::launch::async, [held = std::move(held)] { held->close(); });
  closing.count_down();
  closed.get();
  EXPECT_TRUE(watched.expired()) << "a channel that its own callback holds does not leak";
}

TEST(Hpp, LetsTwoCallbacksCloseEachOther) {
  const EchoLink link(LinkKind::Tcp);
  for (int round = 0; round < 100; ++round) {
    quorvio::Channel channels[2];
    std::latch both(2);
    std::latch done(2);
    for (int i = 0; i < 2; ++i) {
      channels[i] = quorvio::Channel(link.locator(), {}, [&, i](std::string_view) {
        both.arrive_and_wait();
        channels[1 - i].close();
        done.count_down();
      });
    }
    for (auto& channel : channels) channel.send("x");
    done.wait();
  }
}

TEST(Hpp, MovesWhileBytesCome) {
  EchoLink link(LinkKind::Tcp);
  quorvio::Channel channel(link.locator());
  channel.send("x");
  EXPECT_EQ(channel.readExactly(1, kGenerous), "x");
  link.sendForever();
  for (int i = 0; i < 1000; ++i) {
    auto other = std::move(channel);
    EXPECT_EQ(other.readExactly(100, kGenerous).size(), 100U);
    channel = std::move(other);
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_EQ(CodeOf([&] { (void)other.read(); }), Errc::invalidHandle);
  }
  std::promise<void> moved;
  quorvio::Channel target(link.locator());
  quorvio::Channel source;
  source = quorvio::Channel(link.locator(), {}, [&](std::string_view) {
    target = std::move(source);
    target.close();
    moved.set_value();
  });
  source.send("x");
  moved.get_future().wait();
  EXPECT_FALSE(target.isOpen());
}

TEST(Hpp, RefusesTextsThatForgeOptions) {
  const std::string zero("a\0b", 3);
  const std::pair<std::string, std::string> rows[] = {{"product-name", "A\nstrict"},
                                                      {"product-name", zero},
                                                      {zero, ""},
                                                      {"a b", ""},
                                                      {"a\nb", ""},
                                                      {"", "b"}};
  for (const auto& [key, value] : rows)
    EXPECT_EQ(CodeOf([&, &k = key, &v = value] { Options().add(k, v); }), Errc::invalidArgument) << key;
  EXPECT_EQ(
      Options().add("strict").add("port", 80).add("find-only-available", false).add("iface", "a b").text(),
      "strict\nport 80\nfind-only-available false\niface a b");
  EXPECT_EQ(CodeOf([&] { quorvio::Channel("network:" + zero); }), Errc::invalidLocator);
  EXPECT_EQ(CodeOf([] { quorvio::Channel("network:127.0.0.1:1", Options().add("strict").add("port", "x")); }),
            Errc::invalidArgument);
  EXPECT_EQ(make_error_code(Errc::noFreeHandle).message(), "no free handle");
  EXPECT_EQ(make_error_code(static_cast<Errc>(16)).message(), "unknown result 16");
}

TEST(Hpp, ListsAndWatchesTypedDevices) {
  Controllers controllers;
  const auto serial = OwnSerial("hpp");
  quorvio::DeviceWatch watch({"network:127.0.0.1"});
  EXPECT_EQ(CodeOf([] { quorvio::DeviceWatch({}); }), Errc::watchExists);
  const auto port = controllers.add(serial, 4711, 9, "X|Y=1%\n");
  const auto next = [&] {
    for (;;) {
      auto event = watch.next(kGenerous);
      if (!event || event->device.serialNumber == serial) return event;
    }
  };
  const auto found = next();
  ASSERT_TRUE(found && found->found);
  const auto listed =
      quorvio::listDevices(quorvio::InterfaceKind::network, Options()
                                                                .add("iface", "network:127.0.0.1")
                                                                .add("discovery-timeout", 500)
                                                                .add("find-device-sn", serial));
  ASSERT_EQ(listed.size(), 1U);
  for (const auto& device : {found->device, listed.front()}) {
    EXPECT_EQ(device.locator, "network:sn:" + serial);
    EXPECT_EQ(device.info, "X|Y=1%\n");
    EXPECT_TRUE(device.available);
    EXPECT_EQ(device.type, 4711U);
    EXPECT_EQ(device.protocolId, 9U);
    EXPECT_EQ(device.host + ' ' + device.interface, "127.0.0.1 network:127.0.0.1");
    EXPECT_EQ(device.port, port);
  }
  EXPECT_TRUE(controllers->leave(serial));
  const auto lost = next();
  ASSERT_TRUE(lost);
  EXPECT_FALSE(lost->found);
  auto waiting = std::async(std::launch::async, [&] {
    return CodeOf([&] {
      while (watch.next(kGenerous)) continue;
    });
  });
  watch.close();
  EXPECT_EQ(waiting.get(), Errc::invalidHandle);
  EXPECT_EQ(CodeOf([] { quorvio::DeviceWatch({"network:203.0.113.9"}); }), Errc::invalidArgument);
  EXPECT_EQ(CodeOf([] { (void)quorvio::listDevices(quorvio::InterfaceKind::serial); }), Errc::notSupported);
  uint32_t result = 0;
  const auto addresses = ListingText(
      [](char* buffer, std::size_t* size) {
        return QV_IO_EnumerateInterfaces("iface-type network\nonly-network-host", buffer, size);
      },
      result);
  std::string joined;
  for (const auto& interface : quorvio::listInterfaces())
    joined += (joined.empty() ? "" : "\n") + interface.address;
  EXPECT_EQ(joined, addresses);
}

TEST(Hpp, OpensALostDeviceAgain) {
  qvsim::EventLoop loop;
  std::optional<qvsim::NetworkDevice> device(std::in_place, loop, kLoopback, uint16_t{0}, qvsim::MakeEcho);
  const auto port = device->port();
  std::atomic<int> opened = 0;
  std::atomic<int> lost = 0;
  quorvio::Reconnecting channel("network:127.0.0.1:" + std::to_string(port), {},
                                [&](std::error_code why) { why ? ++lost : ++opened; }, {10ms, 50ms});
  EXPECT_EQ(channel.query("a\n", "\n", kGenerous), "a");
  device.reset();
  EXPECT_TRUE(Eventually([&] { return lost >= 1; }));
  EXPECT_TRUE(Eventually([&] { return CodeOf([&] { (void)channel.query("b\n", "\n", 10ms); }) != Errc(); }));
  device.emplace(loop, kLoopback, port, qvsim::MakeEcho);
  EXPECT_TRUE(
      Eventually([&] { return !CodeOf([&] { EXPECT_EQ(channel.query("c\n", "\n", kGenerous), "c"); }); }));
  EXPECT_GE(opened, 2);
  EXPECT_FALSE(channel.waitOpen(kGenerous));
  auto waiting =
      std::async(std::launch::async, [&] { return CodeOf([&] { (void)channel.read(kGenerous); }); });
  channel.close();
  EXPECT_EQ(waiting.get(), Errc::invalidHandle);
  EXPECT_EQ(CodeOf([] { quorvio::Reconnecting("nowhere"); }), Errc::invalidLocator);

  std::optional<quorvio::Reconnecting> own;
  std::promise<void> gone;
  own.emplace("network:127.0.0.1:" + std::to_string(port), Options(), [&](std::error_code why) {
    if (!why) return;
    own.reset();
    gone.set_value();
  });
  own->send("x");
  EXPECT_EQ(own->readExactly(1, kGenerous), "x");
  device->closeAll();
  gone.get_future().wait();
}

}  // namespace
}  // namespace qvtest
