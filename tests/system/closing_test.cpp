// Closing ends in every state, whoever asks for it, and leaves nothing behind.

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quorvio/quorvio.h"
#include "support/channel.h"
#include "support/links.h"
#include "support/process.h"
#include "support/raw_peer.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;

struct State {
  const char* name;
  LinkKind kind;
  std::function<void(EchoLink&, Channel&)> enter;
};

bool HasUnread(int fd) {
  int waiting = 0;
  return ::ioctl(fd, FIONREAD, &waiting) == 0 && waiting > 0;
}

void Idle(EchoLink& /*link*/, Channel& /*channel*/) {}

void Receiving(EchoLink& link, Channel& channel) {
  EXPECT_EQ(channel.send("x"), QV_IO_OK);
  EXPECT_TRUE(channel.receives("x")) << "the device knows of the connection";
  link.sendForever();
  EXPECT_TRUE(Eventually([&] { return channel.receivedSize() > 10000; }));
}

void PeerGone(EchoLink& link, Channel& channel) {
  EXPECT_EQ(channel.send("x"), QV_IO_OK);
  EXPECT_TRUE(channel.receives("x"));
  link.hangUp();
  EXPECT_TRUE(Eventually([&] {
    return channel.notices(QV_IO_ERROR_CONNECTION_LOST) + channel.notices(QV_IO_ERROR_RECEIVE_FAILED) > 0;
  }));
}

const State kStates[] = {
    {"idle serial", LinkKind::Serial, Idle},           {"idle TCP", LinkKind::Tcp, Idle},
    {"receiving serial", LinkKind::Serial, Receiving}, {"receiving TCP", LinkKind::Tcp, Receiving},
    {"serial peer gone", LinkKind::Serial, PeerGone},  {"TCP peer gone", LinkKind::Tcp, PeerGone}};

TEST(Close, EndsInEveryStateWithAndWithoutWait) {
  for (const auto& state : kStates) {
    for (const uint32_t wait : {1U, 0U}) {
      SCOPED_TRACE(state.name);
      EchoLink link(state.kind);
      Channel channel(link.locator(), link.options());
      ASSERT_EQ(channel.result(), QV_IO_OK);
      state.enter(link, channel);
      const auto handle = channel.handle();
      EXPECT_EQ(channel.close(wait), QV_IO_OK);
      EXPECT_TRUE(Eventually([] { return ReceiveThreads() == 0; }));
      EXPECT_EQ(QV_IO_Close(handle, wait), QV_IO_ERROR_INVALID_HANDLE);
    }
  }
}

TEST(Close, EndsASendToAStalledPeerWithinASecond) {
  for (const auto kind : {LinkKind::Serial, LinkKind::Tcp}) {
    EchoLink link(kind);
    Channel channel(link.locator(), link.options());
    link.setReading(qvsim::Reading::Stalled);
    std::atomic<bool> sent = false;
    auto send = std::async(std::launch::async, [&] {
      const auto result = channel.send(std::string(std::size_t{64} << 20, 'x'));
      sent = true;
      return result;
    });
    EXPECT_TRUE(Eventually([&] { return link.hasUnread(); })) << "the send is stuck before the close";
    EXPECT_FALSE(sent);
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(channel.close(1), QV_IO_OK);
    EXPECT_EQ(send.get(), QV_IO_ERROR_TRANSMIT_FAILED);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 10s) << "a hang, not a time, is what fails here";
  }
}

TEST(Close, LetsASendInProgressFinishWhileBytesMove) {
  EchoLink link(LinkKind::Tcp);
  Channel channel(link.locator());
  link.setReading(qvsim::Reading::Stalled);
  auto send =
      std::async(std::launch::async, [&] { return channel.send(std::string(std::size_t{16} << 20, 'x')); });
  EXPECT_TRUE(Eventually([&] { return link.hasUnread(); }));
  auto close = std::async(std::launch::async, [&] { return channel.close(1); });
  link.setReading(qvsim::Reading::Discarding);
  EXPECT_EQ(send.get(), QV_IO_OK);
  EXPECT_EQ(close.get(), QV_IO_OK);
}

TEST(Close, EndsASendToASlowPeerButNotAtOnce) {
  for (const auto kind : {LinkKind::Serial, LinkKind::Tcp}) {
    RawPeer peer(kind);
    Channel channel(peer.locator(), peer.options());
    const int fd = peer.fd();
    std::atomic<bool> ended = false;
    auto send = std::async(std::launch::async, [&] {
      const auto result = channel.send(std::string(std::size_t{256} << 20, 'x'));
      ended = true;
      return result;
    });
    EXPECT_TRUE(Eventually([&] { return HasUnread(fd); }));
    const auto started = std::chrono::steady_clock::now();
    auto close = std::async(std::launch::async, [&] { return channel.close(1); });
    std::string taken(kind == LinkKind::Tcp ? 20000 : 200, 0);
    while (!ended) {
      (void)!::read(fd, taken.data(), taken.size());
      std::this_thread::sleep_for(10ms);
    }
    const auto time = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(send.get(), QV_IO_ERROR_TRANSMIT_FAILED);
    EXPECT_EQ(close.get(), QV_IO_OK);
    EXPECT_GT(time, 3s) << "bytes moved all the time";
    EXPECT_LT(time, 15s) << "a hang, not a time, is what fails here";
  }
}

TEST(Close, BringsOutWhatWasSentToAPeerThatTalks) {
  for (const bool unread : {true, false}) {
    RawPeer peer(LinkKind::Tcp);
    Channel channel(peer.locator());
    std::promise<void> leave;
    channel.onChunk = [&, first = unread](std::string_view) mutable {
      if (std::exchange(first, false)) leave.get_future().wait();
    };
    peer.send("x");
    EXPECT_TRUE(unread || channel.receives("x"));
    peer.send("y");
    const std::string bytes(std::size_t{2} << 20, 'z');
    EXPECT_EQ(channel.send(bytes), QV_IO_OK);
    EXPECT_EQ(channel.close(0), QV_IO_OK);
    leave.set_value();
    std::size_t received = 0;
    std::string piece(65536, 0);
    EXPECT_TRUE(Eventually([&] {
      const auto got = ::read(peer.fd(), piece.data(), piece.size());
      if (got > 0) received += static_cast<std::size_t>(got);
      ::send(peer.fd(), "x", 1, MSG_NOSIGNAL);
      return got == 0 || (got < 0 && errno != EAGAIN);
    }));
    EXPECT_EQ(received, bytes.size()) << "unread input: " << unread;
  }
}

TEST(Close, FromCallbacks) {
  EchoLink link(LinkKind::Tcp);
  for (const uint32_t wait : {0U, 1U}) {
    Channel own(link.locator());
    std::promise<uint32_t> closedOwn;
    own.onChunk = [&](std::string_view) { closedOwn.set_value(own.close(wait)); };
    EXPECT_EQ(own.send("x"), QV_IO_OK);
    EXPECT_EQ(closedOwn.get_future().get(), QV_IO_OK);
    EXPECT_TRUE(Eventually([] { return ReceiveThreads() == 0; }));

    Channel other(link.locator());
    Channel closer(link.locator());
    std::promise<uint32_t> closedOther;
    closer.onChunk = [&](std::string_view) { closedOther.set_value(other.close(wait)); };
    EXPECT_EQ(closer.send("x"), QV_IO_OK);
    EXPECT_EQ(closedOther.get_future().get(), QV_IO_OK);
  }
}

TEST(Handles, TheSixtyFifthOpenReleasesItsDeviceAgain) {
  EchoLink link(LinkKind::Tcp);
  std::vector<std::unique_ptr<Channel>> channels;
  for (uint32_t handle = 0; handle < QV_IO_HANDLE_COUNT; ++handle) {
    channels.push_back(std::make_unique<Channel>(link.locator()));
    ASSERT_EQ(channels.back()->result(), QV_IO_OK);
    EXPECT_EQ(channels.back()->handle(), handle);
  }
  EXPECT_TRUE(Eventually([&] { return link.tcp().connections() == QV_IO_HANDLE_COUNT; }));
  const auto descriptors = Descriptors();
  const Channel oneMore(link.locator());
  EXPECT_EQ(oneMore.result(), QV_IO_ERROR_NO_FREE_HANDLE);
  EXPECT_EQ(oneMore.handle(), 0U);
  EXPECT_TRUE(Eventually([] { return ReceiveThreads() == QV_IO_HANDLE_COUNT; }));
  EXPECT_TRUE(Eventually([&] { return link.tcp().connections() == QV_IO_HANDLE_COUNT; }));
  EXPECT_TRUE(Eventually([&] { return Descriptors() == descriptors; }));
}

TEST(Handles, OpenAndCloseFromSixteenThreads) {
  EchoLink tcp(LinkKind::Tcp);
  const auto descriptors = Descriptors();
  std::vector<std::thread> threads;
  threads.reserve(16);
  for (int thread = 0; thread < 16; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < 30; ++round) {
        Channel channel(tcp.locator());
        ASSERT_EQ(channel.result(), QV_IO_OK);
        const auto text = std::to_string(thread * 1000 + round);
        EXPECT_EQ(channel.send(text), QV_IO_OK);
        EXPECT_TRUE(channel.receives(text));
        EXPECT_EQ(channel.close(1), QV_IO_OK);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(Eventually([] { return ReceiveThreads() == 0; }));
  EXPECT_TRUE(Eventually([&] { return Descriptors() <= descriptors; }));
}

}  // namespace
}  // namespace qvtest
