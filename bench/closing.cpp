#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "inbox.h"
#include "limit_measures.h"
#include "limit_table.h"
#include "open_line.h"
#include "peer.h"

namespace qvbench {
namespace {

using namespace std::chrono_literals;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr double kQuick = 100;          // microseconds
constexpr double kStalled = 1.1 * 1e6;  // a send that is in progress has a second to show progress

Microseconds TimeOfClosing(Channel& channel, bool wait = true) {
  const auto begin = std::chrono::steady_clock::now();
  channel.close(wait);
  return std::chrono::steady_clock::now() - begin;
}

template <class Round>
double Median(std::size_t rounds, Round round) {
  std::vector<double> times(rounds);
  std::ranges::generate(times, [&] { return round().count(); });
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(rounds / 2);
  std::ranges::nth_element(times, middle);
  return *middle;
}

Microseconds CloseIdle(Line line) {
  OpenLine idle(line);
  return TimeOfClosing(idle.channel());
}

Microseconds CloseWithoutWait() {
  OpenLine idle(Line::Tcp);
  const auto time = TimeOfClosing(idle.channel(), false);
  idle.awaitEnd();
  return time;
}

Microseconds CloseAfterLoss() {
  OpenLine lost(Line::Tcp);
  lost.loseFarEnd();
  return TimeOfClosing(lost.channel());
}

Microseconds CloseInFlood() {
  const Peer peer(Line::Tcp, Flood);
  Inbox inbox;
  Channel channel(peer.address(), &inbox, [](void* user, const uint8_t* /*data*/, std::size_t length) {
    static_cast<Inbox*>(user)->add(length);
  });
  const std::array<uint8_t, 1> start{};
  Require(channel.send(start) == QV_IO_OK, "QV_IO_Send");
  inbox.await(kBulk / 16);
  return TimeOfClosing(channel);
}

/// The far end reads nothing: when nothing more arrives there, the sender is stuck.
void AwaitStall(const OpenLine& line) {
  for (int before = -1, now = 0; now == 0 || now != before;) {
    before = now;
    std::this_thread::sleep_for(100ms);
    now = line.waitingAtFarEnd();
  }
}

Microseconds CloseStalled(Line line) {
  OpenLine stalled(line);
  const std::vector<uint8_t> message(kBulk / 8);
  uint32_t result = QV_IO_OK;
  std::jthread sender([&] { result = stalled.channel().send(message); });
  AwaitStall(stalled);
  const auto time = TimeOfClosing(stalled.channel());
  sender.join();
  Require(result == QV_IO_ERROR_TRANSMIT_FAILED, "end of the stalled send");
  return time;
}

}  // namespace

void MeasureClosing() {
  constexpr std::size_t kRounds = 201;
  constexpr std::size_t kFewRounds = 3;  // each takes a second
  PrintLimit("close with wait, idle, TCP", Median(kRounds, [] { return CloseIdle(Line::Tcp); }), kQuick,
             "us");
  PrintLimit("close with wait, idle, terminal",
             Median(kRounds, [] { return CloseIdle(Line::PseudoTerminal); }), kQuick, "us");
  PrintLimit("close without wait, idle, TCP", Median(kRounds, CloseWithoutWait), kQuick, "us");
  PrintLimit("close with wait, peer is gone, TCP", Median(kRounds, CloseAfterLoss), kStalled, "us");
  PrintLimit("close with wait, peer floods, TCP", Median(kRounds / 10, CloseInFlood), kStalled, "us");
  PrintLimit("close with wait, send stalled, TCP", Median(kFewRounds, [] { return CloseStalled(Line::Tcp); }),
             kStalled, "us");
  PrintLimit("close with wait, send stalled, terminal",
             Median(kFewRounds, [] { return CloseStalled(Line::PseudoTerminal); }), kStalled, "us");
}

}  // namespace qvbench
