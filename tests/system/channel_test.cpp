// Traffic and link faults of serial ports and TCP, through the shared library against simulated devices. What
// must hold for both kinds is one test over both.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <future>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "quorvio/quorvio.h"
#include "support/channel.h"
#include "support/links.h"
#include "support/private_network.h"
#include "support/raw_peer.h"
#include "support/recorded_channel.h"
#include "util/system_call.h"
#include "util/unique_fd.h"

namespace qvtest {
namespace {

std::string Pattern(std::size_t length) {
  std::string bytes(length, '\0');
  uint32_t state = 1;
  for (auto& byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

class BothKinds : public testing::TestWithParam<LinkKind> {
 protected:
  EchoLink echo_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Channels, BothKinds, testing::Values(LinkKind::Serial, LinkKind::Tcp),
                         [](const auto& kind) { return kind.param == LinkKind::Serial ? "Serial" : "Tcp"; });

TEST_P(BothKinds, CarryEveryByteBothWaysWheneverTheyAreOpened) {
  const std::size_t much = GetParam() == LinkKind::Tcp ? std::size_t{64} << 20U : 100000;
  for (const std::size_t size : {std::size_t{1}, much}) {
    const RecordedChannel channel(echo_.locator(), echo_.options());
    ASSERT_EQ(channel.result(), QV_IO_OK);
    const auto bytes = Pattern(size);
    EXPECT_EQ(channel.send(bytes), QV_IO_OK);
    EXPECT_TRUE(channel.receives(bytes));
    EXPECT_LE(channel.largestPiece(), std::size_t{QV_IO_RECEIVE_CHUNK});
  }
}

TEST_P(BothKinds, KeepSendsOfSeveralThreadsApart) {
  constexpr std::size_t kEach = 200000;
  const auto channel = Open(echo_);
  std::vector<std::thread> senders;
  for (const char letter : {'a', 'b', 'c'})
    senders.emplace_back([&, letter] { channel.send(std::string(kEach, letter)); });
  auto order = channel.readExactly(3 * kEach, kGenerous);
  for (auto& sender : senders) sender.join();
  order.erase(std::unique(order.begin(), order.end()), order.end());
  EXPECT_EQ(order.size(), 3U) << "each sender's bytes are one run";
}

TEST(TcpChannel, ReportsARefusalAtTheOpenOrSoonAfter) {
  uint16_t port = 0;
  { port = EchoLink(LinkKind::Tcp).tcp().port(); }
  const RecordedChannel channel("network:127.0.0.1:" + std::to_string(port));
  // A connect that is under way counts as done once the socket is writable, as a refused one is.
  if (channel.result() == QV_IO_OK) {
    EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_CONNECTION_LOST, 2));
    EXPECT_EQ(channel.send("x"), QV_IO_ERROR_TRANSMIT_FAILED);
  } else {
    EXPECT_EQ(channel.result(), QV_IO_ERROR_DEVICE_NOT_FOUND);
  }
}

TEST(TcpChannel, GivesUpOnAPeerThatNeverAnswers) {
  const RawPeer silent(LinkKind::Tcp);
  const quorvio::Channel fillTheQueue[] = {Open(silent), Open(silent)};
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(OpenResult(silent.locator(), "connect-timeout 50"), QV_IO_ERROR_DEVICE_NOT_FOUND);
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(50));
}

TEST(TcpChannel, ReportsEveryEndOfAConnectionAfterItsBytes) {
  enum End { Closing = 1, Reset = 2 };
  const struct {
    const char* name;
    std::size_t bytes;
    int end;
    uint32_t firstSend;
    uint32_t secondSend;
  } rows[] = {
      {"reset", 0, Reset, QV_IO_ERROR_CONNECTION_LOST, QV_IO_ERROR_TRANSMIT_FAILED},
      {"bytes, reset", 10, Reset, QV_IO_ERROR_CONNECTION_LOST, QV_IO_ERROR_TRANSMIT_FAILED},
      {"64 KiB, reset", 65536, Reset, QV_IO_ERROR_CONNECTION_LOST, QV_IO_ERROR_TRANSMIT_FAILED},
      {"128 KiB, reset", 131072, Reset, QV_IO_ERROR_CONNECTION_LOST, QV_IO_ERROR_TRANSMIT_FAILED},
      {"half closed", 0, Closing, QV_IO_OK, QV_IO_OK},
      {"bytes, half closed", 10, Closing, QV_IO_OK, QV_IO_OK},
      {"half closed, reset", 0, Closing | Reset, QV_IO_ERROR_TRANSMIT_FAILED, QV_IO_ERROR_TRANSMIT_FAILED},
      {"bytes, half closed, reset", 10, Closing | Reset, QV_IO_ERROR_TRANSMIT_FAILED,
       QV_IO_ERROR_TRANSMIT_FAILED}};
  for (const auto& row : rows) {
    for (const bool allAtOnce : {false, true}) {
      if (allAtOnce && row.bytes > 1024) continue;  // more than a peer may send before the first read
      SCOPED_TRACE(row.name);
      RawPeer peer(LinkKind::Tcp);
      RecordedChannel channel(peer.locator());
      std::promise<void> entered;
      std::promise<void> leave;
      if (allAtOnce) {
        channel.onPiece = [&, first = true](std::string_view) mutable {
          if (!std::exchange(first, false)) return;
          entered.set_value();
          leave.get_future().wait();
        };
      }
      peer.send("x");
      if (allAtOnce) entered.get_future().wait();
      const auto bytes = Pattern(row.bytes);
      peer.send(bytes);
      if ((row.end & Closing) != 0) peer.endSending();
      if ((row.end & Reset) != 0) peer.reset();
      if (allAtOnce) leave.set_value();
      EXPECT_TRUE(channel.receives("x" + bytes));
      EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_CONNECTION_LOST, 3));
      EXPECT_EQ(channel.notices(QV_IO_ERROR_RECEIVE_FAILED), 0);
      EXPECT_EQ(channel.send("y"), row.firstSend);
      EXPECT_EQ(channel.send("y"), row.secondSend) << "and no broken-pipe signal";
    }
  }
}

TEST(TcpChannel, GoesOnAfterAnUrgentByte) {
  RawPeer peer(LinkKind::Tcp);
  const RecordedChannel channel(peer.locator());
  peer.send("ab");
  EXPECT_TRUE(channel.receives("ab"));
  peer.send("!", MSG_OOB);
  peer.send("cd");
  EXPECT_TRUE(channel.receives("abcd")) << "the urgent byte itself is not part of the stream";
  peer.send("ef");
  EXPECT_TRUE(channel.receives("abcdef"));
  EXPECT_EQ(channel.notices(QV_IO_ERROR_CONNECTION_LOST), 0);
}

/// The result of a connect to the only port that the system can choose, in a network of its own; -1: the
/// system forbids that.
int ConnectToOneself() {
  const PrivateNetwork network;
  const bool hasOnePort =
      network.entered() && static_cast<bool>(std::ofstream("/proc/sys/net/ipv4/ip_local_port_range")
                                             << "40000 40000" << std::flush);
  return hasOnePort ? static_cast<int>(OpenResult("network:127.0.0.1:40000")) : -1;
}

TEST(TcpChannel, CountsAConnectionToItselfAsRefused) {
  const auto child = ::fork();  // the network must not stay for the tests that follow
  if (child == 0) ::_exit(ConnectToOneself());
  int status = 0;
  cppu::Uninterrupted([&] { return ::waitpid(child, &status, 0); });
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 255) GTEST_SKIP() << PrivateNetwork::kForbidden;
  EXPECT_EQ(WEXITSTATUS(status), QV_IO_ERROR_DEVICE_NOT_FOUND);
}

TEST(Channels, StayAboveTheStandardStreams) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  for (const auto kind : {LinkKind::Serial, LinkKind::Tcp}) {
    const auto leavesThemAlone = [kind] {
      const RawPeer peer(kind);  // opens nothing more
      for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(fd);
      const auto channel = Open(peer);
      bool anyOpen = false;
      for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        anyOpen = anyOpen || ::fcntl(fd, F_GETFD) >= 0;
      return !anyOpen;
    };
    EXPECT_EXIT(std::_Exit(leavesThemAlone() ? 0 : 1), testing::ExitedWithCode(0), "");
  }
}

/// Opens the controlling terminal on which another process group is in the foreground; false when it was
/// stopped.
bool OpensFromTheBackground() {
  ::signal(SIGHUP, SIG_IGN);  // the terminal goes before the session does
  ::setsid();
  const RawPeer peer(LinkKind::Serial);
  const auto path = peer.locator().substr(peer.locator().find(':') + 1);
  const cppu::UniqueFd controlling(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  const auto child = ::fork();
  if (child == 0) {
    ::setpgid(0, 0);
    std::_Exit(Open(peer).isOpen() ? 0 : 1);  // before it is closed
  }
  int status = 0;
  ::waitpid(child, &status, WUNTRACED);
  ::kill(child, SIGKILL);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(SerialChannel, OpensItsControllingTerminalFromTheBackground) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(std::_Exit(OpensFromTheBackground() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(SerialChannel, ReportsThatTheOtherEndIsGone) {
  for (const bool hasErrorCallback : {true, false}) {
    EchoLink echo(LinkKind::Serial);
    RecordedChannel channel(echo.locator(), echo.options(), hasErrorCallback);
    EXPECT_EQ(channel.send("x"), QV_IO_OK);
    EXPECT_TRUE(channel.receives("x"));
    echo.hangUp();
    EXPECT_TRUE(!hasErrorCallback || channel.isNotified(QV_IO_ERROR_RECEIVE_FAILED, 3));
    EXPECT_TRUE(Eventually([&] { return channel.send("y") == QV_IO_ERROR_TRANSMIT_FAILED; }));
    EXPECT_EQ(channel.close(1), QV_IO_OK);
  }
}

}  // namespace
}  // namespace qvtest
