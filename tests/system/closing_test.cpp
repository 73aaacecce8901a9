// Closing ends whatever the peer does and whoever asks for it; bytes that were sent arrive.

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <future>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "quorvio/quorvio.h"
#include "support/channel.h"
#include "support/links.h"
#include "support/process.h"
#include "support/raw_peer.h"
#include "support/recorded_channel.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;
using quorvio::Errc;

bool HasUnread(int fd) {
  int waiting = 0;
  return ::ioctl(fd, FIONREAD, &waiting) == 0 && waiting > 0;
}

/// Sends so many MiB on a thread of its own; the error with which that ends.
std::future<std::error_code> Sending(const quorvio::Channel& channel, std::size_t mebibytes) {
  return std::async(std::launch::async, [&channel, mebibytes] {
    return CodeOf([&] { channel.send(std::string(mebibytes << 20U, 'x')); });
  });
}

TEST(Close, EndsASendToAStalledPeerWithinASecond) {
  for (const auto kind : {LinkKind::Serial, LinkKind::Tcp}) {
    EchoLink link(kind);
    auto channel = Open(link);
    link.setReading(qvsim::Reading::Stalled);
    auto send = Sending(channel, 64);
    EXPECT_TRUE(Eventually([&] { return link.hasUnread(); })) << "the send is stuck before the close";
    EXPECT_EQ(send.wait_for(0s), std::future_status::timeout);
    const auto started = std::chrono::steady_clock::now();
    channel.close();
    EXPECT_EQ(send.get(), Errc::transmitFailed);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 10s) << "a hang, not a time, is what fails here";
  }
}

TEST(Close, LetsASendInProgressFinishWhileBytesMove) {
  EchoLink link(LinkKind::Tcp);
  auto channel = Open(link);
  link.setReading(qvsim::Reading::Stalled);
  auto send = Sending(channel, 16);
  EXPECT_TRUE(Eventually([&] { return link.hasUnread(); }));
  auto close = std::async(std::launch::async, [&] { channel.close(); });
  link.setReading(qvsim::Reading::Discarding);
  EXPECT_FALSE(send.get());
}

TEST(Close, EndsASendToASlowPeerButNotAtOnce) {
  for (const auto kind : {LinkKind::Serial, LinkKind::Tcp}) {
    RawPeer peer(kind);
    auto channel = Open(peer);
    const int fd = peer.fd();
    auto send = Sending(channel, 64);
    EXPECT_TRUE(Eventually([&] { return HasUnread(fd); }));
    const auto started = std::chrono::steady_clock::now();
    auto close = std::async(std::launch::async, [&] { channel.close(); });
    std::string taken(kind == LinkKind::Tcp ? 20000 : 200, 0);
    while (send.wait_for(10ms) == std::future_status::timeout) (void)!::read(fd, taken.data(), taken.size());
    const auto time = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(send.get(), Errc::transmitFailed);
    EXPECT_GT(time, 3s) << "bytes moved all the time";
    EXPECT_LT(time, 15s) << "a hang, not a time, is what fails here";
  }
}

TEST(Close, BringsOutWhatWasSentToAPeerThatTalks) {
  for (const bool unread : {true, false}) {
    RawPeer peer(LinkKind::Tcp);
    RecordedChannel channel(peer.locator());
    std::promise<void> leave;
    channel.onPiece = [&, first = unread](std::string_view) mutable {
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

TEST(Close, WithWaitReturnsAfterTheLastCallback) {
  for (const auto kind : {LinkKind::Serial, LinkKind::Tcp}) {
    EchoLink link(kind);
    RecordedChannel channel(link.locator(), link.options());
    std::promise<void> entered;
    std::atomic<bool> left = false;
    channel.onPiece = [&](std::string_view) {
      entered.set_value();
      std::this_thread::sleep_for(50ms);  // a close that does not wait returns earlier
      left = true;
    };
    EXPECT_EQ(channel.send("x"), QV_IO_OK);
    entered.get_future().wait();
    EXPECT_EQ(channel.close(1), QV_IO_OK);
    EXPECT_TRUE(left);
  }
}

TEST(Close, FromCallbacks) {
  EchoLink link(LinkKind::Tcp);
  for (const uint32_t wait : {0U, 1U}) {
    RecordedChannel own(link.locator());
    std::promise<uint32_t> closedOwn;
    own.onPiece = [&](std::string_view) { closedOwn.set_value(own.close(wait)); };
    EXPECT_EQ(own.send("x"), QV_IO_OK);
    EXPECT_EQ(closedOwn.get_future().get(), QV_IO_OK);
    EXPECT_TRUE(Eventually([] { return ReceiveThreads() == 0; }));

    RecordedChannel other(link.locator());
    RecordedChannel closer(link.locator());
    std::promise<uint32_t> closedOther;
    closer.onPiece = [&](std::string_view) { closedOther.set_value(other.close(wait)); };
    EXPECT_EQ(closer.send("x"), QV_IO_OK);
    EXPECT_EQ(closedOther.get_future().get(), QV_IO_OK);
  }
}

TEST(Handles, TheSixtyFifthOpenReleasesItsDeviceAgain) {
  EchoLink link(LinkKind::Tcp);
  std::vector<quorvio::Channel> channels;
  while (channels.size() < QV_IO_HANDLE_COUNT) channels.push_back(Open(link));
  EXPECT_TRUE(Eventually([&] { return link.tcp().connections() == QV_IO_HANDLE_COUNT; }));
  const auto descriptors = Descriptors();
  EXPECT_EQ(OpenResult(link.locator()), QV_IO_ERROR_NO_FREE_HANDLE);
  EXPECT_TRUE(Eventually([] { return ReceiveThreads() == QV_IO_HANDLE_COUNT; }));
  EXPECT_TRUE(Eventually([&] { return link.tcp().connections() == QV_IO_HANDLE_COUNT; }));
  EXPECT_TRUE(Eventually([&] { return Descriptors() == descriptors; }));
}

}  // namespace
}  // namespace qvtest
