// Faults of a descriptor that no real device gives on demand: reads and writes that fail while bytes are
// reported.

#include "io/descriptor_channel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <utility>

#include "support/wait.h"
#include "util/failure.h"

namespace qvio {
namespace {

using namespace std::chrono_literals;
using qvtest::Eventually;

constexpr DescriptorKind kDelivering{.nothingReady = QV_IO_OK,
                                     .peerReset = QV_IO_ERROR_TRANSMIT_FAILED,
                                     .largestWrite = 4,
                                     .socket = false,
                                     .failedReadIsDelivered = true};
constexpr DescriptorKind kReporting{.nothingReady = QV_IO_ERROR_CONNECTION_LOST,
                                    .peerReset = QV_IO_ERROR_CONNECTION_LOST,
                                    .largestWrite = 4,
                                    .socket = false,
                                    .failedReadIsDelivered = false};

/// A channel over any descriptor.
class AnyChannel final : public DescriptorChannel {
 public:
  AnyChannel(const DescriptorKind& kind, ChannelArguments arguments, cppu::UniqueFd fd)
      : DescriptorChannel(kind, std::move(arguments)), given_(std::move(fd)) {}
  std::string property(std::string_view /*key*/) override { return {}; }

 private:
  [[nodiscard]] cppu::UniqueFd openDescriptor() const override { return cppu::UniqueFd(::dup(given_.get())); }

  cppu::UniqueFd given_;
};

constexpr std::array<uint8_t, 9> kNineBytes{'1', '2', '3', '4', '5', '6', '7', '8', '9'};

struct Counts {
  std::atomic<int> failedReads = 0;
  std::atomic<int> notices = 0;
  std::atomic<uint32_t> lastNotice = 0;
};

void CountRead(void* counts, const uint8_t* /*data*/, std::size_t length) {
  if (length == static_cast<std::size_t>(-1)) ++static_cast<Counts*>(counts)->failedReads;
}

void CountNotice(void* counts, uint32_t code) {
  static_cast<Counts*>(counts)->lastNotice = code;
  ++static_cast<Counts*>(counts)->notices;
}

/// The writing end of a pipe without a reader, with 5 bytes in it: it polls ready, reports 5 bytes, and every
/// read fails.
cppu::UniqueFd UnreadableDescriptor() {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
  EXPECT_EQ(::write(ends[1], "12345", 5), 5);
  ::close(ends[0]);
  return cppu::UniqueFd(ends[1]);
}

TEST(DescriptorChannel, FailedReadsAreToldAndNeverKeepItFromClosing) {
  const struct {
    const DescriptorKind& kind;
    QV_IO_ErrorCallback onError;
    bool delivered;
  } rows[] = {{kDelivering, nullptr, true},
              {kDelivering, CountNotice, false},
              {kReporting, nullptr, false},
              {kReporting, CountNotice, false}};
  for (const auto& row : rows) {
    Counts counts;
    const auto channel = std::make_shared<AnyChannel>(
        row.kind, ChannelArguments{ReadLocator("serial:x"), "", &counts, CountRead, row.onError},
        UnreadableDescriptor());
    channel->open(channel);
    // More than the 5 bytes that wait: the -1 counts on like any other result.
    EXPECT_TRUE(!row.delivered || Eventually([&] { return counts.failedReads >= 8; }));
    EXPECT_TRUE(row.onError == nullptr || Eventually([&] { return counts.notices >= 2; }));
    channel->close(true);
    EXPECT_EQ(counts.failedReads > 0, row.delivered);
    EXPECT_EQ(counts.lastNotice, row.onError != nullptr ? uint32_t{QV_IO_ERROR_RECEIVE_FAILED} : 0U);
  }
}

/// A link whose peer has gone, in the test's hands too.
struct VanishingLink : Counts {
  cppu::UniqueFd nearEnd;
};

/// At the empty message takes away what was counted after it.
void Vanish(void* counts, const uint8_t* /*data*/, std::size_t length) {
  auto& link = *static_cast<VanishingLink*>(static_cast<Counts*>(counts));
  if (length != 0) return;
  std::array<char, 8> bytes{};
  EXPECT_EQ(::read(link.nearEnd.get(), bytes.data(), bytes.size()), 5);
}

TEST(DescriptorChannel, TellsOfAPeerThatWentBetweenTheCountAndTheRead) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
  VanishingLink link{{}, cppu::UniqueFd(ends[0])};
  EXPECT_EQ(::send(ends[1], "", 0, 0), 0);
  EXPECT_EQ(::send(ends[1], "12345", 5, 0), 5);
  ::close(ends[1]);
  const auto channel = std::make_shared<AnyChannel>(
      kReporting,
      ChannelArguments{ReadLocator("serial:x"), "", static_cast<Counts*>(&link), Vanish, CountNotice},
      cppu::UniqueFd(::dup(ends[0])));
  channel->open(channel);
  EXPECT_TRUE(Eventually([&] { return link.notices >= 2; }));
  channel->close(true);
}

TEST(DescriptorChannel, SendsInPiecesAndReportsAFailedWrite) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
  cppu::UniqueFd peer(ends[1]);
  const auto channel = std::make_shared<AnyChannel>(
      kDelivering, ChannelArguments{ReadLocator("serial:x"), "", nullptr, nullptr, nullptr},
      cppu::UniqueFd(ends[0]));
  channel->open(channel);
  channel->send(kNineBytes);
  std::array<char, 16> got{};
  EXPECT_EQ(::read(peer.get(), got.data(), got.size()), 9);
  EXPECT_STREQ(got.data(), "123456789");
  channel->close(true);
  EXPECT_EQ(ResultOf([&] { channel->send(kNineBytes); }), QV_IO_ERROR_TRANSMIT_FAILED)
      << "a send that comes too late writes nowhere";
  EXPECT_EQ(::read(peer.get(), got.data(), got.size()), -1)
      << "the test still holds the other descriptor open";
}

/// A socket takes the place of a line: it counts its queued bytes too, and does not drop them either.
TEST(DescriptorChannel, WaitsAtTheCloseForQueuedBytesButNotForever) {
  for (const bool deviceReads : {true, false}) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
    cppu::UniqueFd nearEnd(ends[0]);
    const cppu::UniqueFd device(ends[1]);
    auto channel = std::make_shared<AnyChannel>(
        kDelivering, ChannelArguments{ReadLocator("serial:x"), "", nullptr, nullptr, nullptr},
        cppu::UniqueFd(::dup(nearEnd.get())));
    channel->open(channel);
    channel->send(kNineBytes);
    const auto started = std::chrono::steady_clock::now();
    auto close = std::async(std::launch::async, [&] { channel->close(true); });
    std::array<char, 4> piece{};
    while (close.wait_for(20ms) == std::future_status::timeout) {
      if (deviceReads) (void)!::read(device.get(), piece.data(), piece.size());
    }
    EXPECT_EQ(QueuedBytes(nearEnd.get()) == 0, deviceReads);
    EXPECT_TRUE(deviceReads || std::chrono::steady_clock::now() - started >= 1s);
    channel.reset();  // the test class holds the descriptor too
    nearEnd.reset();
    while (::read(device.get(), piece.data(), piece.size()) > 0) continue;
    EXPECT_EQ(::read(device.get(), piece.data(), piece.size()), 0) << "the channel's descriptor is closed";
  }
}

}  // namespace
}  // namespace qvio
