// The devices as a program sees them: through plain sockets and terminals.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <future>
#include <string>
#include <string_view>

#include "sim/controller.h"
#include "sim/network_device.h"
#include "sim/serial_device.h"
#include "support/wait.h"
#include "util/unique_fd.h"

namespace qvsim {
namespace {

using qvtest::Eventually;

constexpr int kLimitMs = 20000;

cppu::UniqueFd Connect(const NetworkDevice& device) {
  cppu::UniqueFd fd{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(device.port());
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(fd.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
  return fd;
}

cppu::UniqueFd Open(const SerialDevice& device) {
  cppu::UniqueFd fd{::open(device.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)};
  EXPECT_TRUE(fd);
  return fd;
}

/// Writes all bytes; false when the link broke.
bool Send(const cppu::UniqueFd& fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = ::write(fd.get(), bytes.data(), bytes.size());
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// What one read brings: bytes, "end" or the error; "nothing" after the limit.
std::string Receive(const cppu::UniqueFd& fd, int limitMs = kLimitMs) {
  pollfd entry{fd.get(), POLLIN, 0};
  if (::poll(&entry, 1, limitMs) != 1) return "nothing";
  std::array<char, 65536> bytes;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by read
  const auto count = ::read(fd.get(), bytes.data(), bytes.size());
  if (count < 0) return errno == ECONNRESET ? "reset" : errno == EIO ? "hung up" : "failed";
  return count == 0 ? "end" : std::string(bytes.data(), static_cast<std::size_t>(count));
}

std::string ReceiveAll(const cppu::UniqueFd& fd, std::size_t length) {
  std::string all;
  pollfd entry{fd.get(), POLLIN, 0};
  while (all.size() < length && ::poll(&entry, 1, kLimitMs) == 1) all += Receive(fd);
  return all;
}

std::string Pattern(std::size_t length) {
  std::string bytes(length, '\0');
  uint32_t state = 1;
  for (auto& byte : bytes) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  return bytes;
}

void ExpectWholeEcho(const cppu::UniqueFd& fd, std::size_t length) {
  const auto bytes = Pattern(length);
  auto sent = std::async(std::launch::async, [&] { return Send(fd, bytes); });
  EXPECT_TRUE(ReceiveAll(fd, length) == bytes);
  EXPECT_TRUE(sent.get());
}

class Devices : public testing::Test {
 protected:
  EventLoop loop_;
};

TEST_F(Devices, EchoLosesNothingOfALongStream) {
  const NetworkDevice tcp(loop_, "127.0.0.1", 0, MakeEcho);
  const SerialDevice serial(loop_, MakeEcho);
  ExpectWholeEcho(Connect(tcp), std::size_t{64} << 20);
  ExpectWholeEcho(Open(serial), std::size_t{8} << 20);
}

TEST_F(Devices, EchoStopsReadingWhileThePeerReadsNothing) {
  NetworkDevice device(loop_, "127.0.0.1", 0, MakeEcho);
  const auto fd = Connect(device);
  std::string sent;
  pollfd writable{fd.get(), POLLOUT, 0};
  const std::string piece(65536, 'x');
  ::fcntl(fd.get(), F_SETFL, O_NONBLOCK);
  const auto isStuck = [&] { return ::poll(&writable, 1, 500) == 0 && device.hasUnread(); };
  while (sent.size() < (std::size_t{256} << 20) && !isStuck()) {
    const auto written = ::write(fd.get(), piece.data(), piece.size());
    if (written > 0) sent.append(static_cast<std::size_t>(written), 'x');
  }
  EXPECT_LT(sent.size(), std::size_t{64} << 20) << "what a device and the system hold is bounded";
  EXPECT_TRUE(ReceiveAll(fd, sent.size()) == sent);
}

TEST_F(Devices, SerialServesOneOpenerAfterTheOther) {
  const SerialDevice device(loop_, ServeController({}));
  for (const std::string position : {"1.000", "2.000"}) {
    const auto fd = Open(device);
    EXPECT_TRUE(Send(fd, "MOV " + position + "\nPOS?\n"));
    EXPECT_EQ(ReceiveAll(fd, 11), "OK\r\n" + position + "\r\n");
  }
}

TEST_F(Devices, SendWhatTheyAreToldInOrder) {
  NetworkDevice tcp(loop_, "127.0.0.1", 0, MakeEcho);
  SerialDevice serial(loop_, MakeEcho);
  const auto first = Connect(tcp);
  const auto second = Connect(tcp);
  const auto terminal = Open(serial);
  EXPECT_TRUE(Eventually([&] { return tcp.connections() == 2; }));
  const auto large = Pattern(std::size_t{16} << 20);
  tcp.send(large);
  tcp.send("!");
  serial.send(large.substr(0, 300000));
  EXPECT_TRUE(Send(first, "echo"));
  EXPECT_TRUE(ReceiveAll(first, large.size() + 5) == large + "!echo");
  EXPECT_TRUE(ReceiveAll(second, large.size() + 1) == large + "!");
  EXPECT_TRUE(ReceiveAll(terminal, 300000) == large.substr(0, 300000));
}

TEST_F(Devices, PlayTheFaultsOfATcpLink) {
  const struct {
    const char* fault;
    void (*play)(NetworkDevice&);
    std::string seen;
    std::size_t left;
  } rows[] = {{"close", [](NetworkDevice& device) { device.closeAll(); }, "end", 0},
              {"reset", [](NetworkDevice& device) { device.resetAll(); }, "reset", 0},
              {"half close", [](NetworkDevice& device) { device.halfCloseAll(); }, "end", 1}};
  NetworkDevice device(loop_, "127.0.0.1", 0, MakeEcho);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.fault);
    const auto fd = Connect(device);
    EXPECT_TRUE(Send(fd, "x"));
    EXPECT_EQ(Receive(fd), "x");
    row.play(device);
    EXPECT_EQ(Receive(fd), row.seen);
    EXPECT_EQ(device.connections(), row.left);
  }
  EXPECT_TRUE(Eventually([&] { return device.connections() == 0; })) << "the peers have closed";
}

TEST_F(Devices, StallAndGoOn) {
  NetworkDevice device(loop_, "127.0.0.1", 0, MakeEcho);
  const auto fd = Connect(device);
  EXPECT_TRUE(Eventually([&] { return device.connections() == 1; }));
  device.setReading(Reading::Stalled);
  EXPECT_TRUE(Send(fd, "kept"));
  EXPECT_TRUE(Eventually([&] { return device.hasUnread(); }));
  EXPECT_EQ(Receive(fd, 0), "nothing");
  device.setReading(Reading::Answering);
  EXPECT_EQ(ReceiveAll(fd, 4), "kept");
}

TEST_F(Devices, SerialHangsUp) {
  SerialDevice device(loop_, MakeEcho);
  const auto fd = Open(device);
  device.hangUp();
  EXPECT_EQ(Receive(fd), "end");
  EXPECT_FALSE(Send(fd, "x"));
}

}  // namespace
}  // namespace qvsim
