#include "cases.h"

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <thread>
#include <type_traits>
#include <vector>

#include "contestants.h"
#include "peer.h"
#include "query_clients.h"

namespace qvbench {
namespace {

constexpr std::size_t kLargeMessage = std::size_t{64} << 20U;

/// Of the process until now, the far end included.
double ContextSwitches() {
  rusage used{};
  Require(::getrusage(RUSAGE_SELF, &used) == 0, "getrusage");
  return static_cast<double>(used.ru_nvcsw + used.ru_nivcsw);
}

template <class Contestant>
void RoundTrip(benchmark::State& state, Line line) {
  const Peer peer(line, Echo);
  Contestant contestant(peer.address());
  const std::array<uint8_t, 64> request{};
  const auto before = ContextSwitches();
  for (auto _ : state) {
    contestant.send(request);
    contestant.receive(request.size());
  }
  state.counters[kSwitches] = {ContextSwitches() - before, benchmark::Counter::kAvgIterations};
}

template <class Client>
void Query(benchmark::State& state) {
  const Peer peer(Line::Tcp, Echo);
  Client client(peer.address());
  const std::string request = std::string(63, 'x') + '\n';
  const auto before = ContextSwitches();
  for (auto _ : state) Require(client.ask(request).size() == 63, "whole answer");
  state.counters[kSwitches] = {ContextSwitches() - before, benchmark::Counter::kAvgIterations};
}

template <class Contestant>
void Receive(benchmark::State& state) {
  const Peer peer(Line::Tcp, Flood);
  Contestant contestant(peer.address());
  const std::array<uint8_t, 1> start{};
  for (auto _ : state) {
    contestant.send(start);
    contestant.receive(kBulk);
  }
}

template <class Contestant>
void Send(benchmark::State& state) {
  const Peer peer(Line::Tcp, Swallow);
  Contestant contestant(peer.address());
  const std::vector<uint8_t> piece(kLargePiece);
  for (auto _ : state) {
    for (std::size_t sent = 0; sent < kBulk; sent += piece.size()) contestant.send(piece);
    contestant.receive(1);
  }
}

/// All bytes in one send while they come back; plain code needs a second thread for that.
template <class Contestant>
void SendAndReceive(Contestant& contestant, const std::vector<uint8_t>& message) {
  if constexpr (Contestant::kReceivesByItself) {
    contestant.send(message);
    contestant.receive(message.size());
  } else {
    const std::jthread sender([&] { contestant.send(message); });
    contestant.receive(message.size());
  }
}

template <class Contestant>
void EchoLargeMessage(benchmark::State& state) {
  const Peer peer(Line::Tcp, Echo);
  Contestant contestant(peer.address());
  const std::vector<uint8_t> message(kLargeMessage);
  for (auto _ : state) SendAndReceive(contestant, message);
}

/// A quarter of the repetitions was as quick as this: other work on the machine disturbs it less than the
/// median.
double LowerQuartile(const std::vector<double>& times) {
  auto sorted = times;
  const auto quarter = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 4);
  std::ranges::nth_element(sorted, quarter);
  return *quarter;
}

template <class Contestant, class Run>
auto* Register(const char* name, Run run) {
  return benchmark::RegisterBenchmark(RunName(name, Contestant::kName).c_str(), run)
      ->UseRealTime()
      ->MeasureProcessCPUTime()
      ->ComputeStatistics(kQuarter, LowerQuartile);
}

constexpr int kRoundTrips = 500;  // short, so that a disturbance does not meet one contestant alone

template <class Client>
void RegisterQuery() {
  Register<Client>(kQuery, Query<Client>)->Unit(benchmark::kMicrosecond)->Iterations(kRoundTrips);
}

template <class Contestant>
void RegisterRoundTrip(const char* name, Line line) {
  Register<Contestant>(name, [line](auto& state) { RoundTrip<Contestant>(state, line); })
      ->Unit(benchmark::kMicrosecond)
      ->Iterations(kRoundTrips);
}

template <class Contestant>
void RegisterTransfer(const char* name, void (*run)(benchmark::State&)) {
  Register<Contestant>(name, run)->Unit(benchmark::kMillisecond)->Iterations(1);
}

template <class Contestant>
void RegisterReceiver() {
  RegisterRoundTrip<Contestant>(kRoundTripTcp, Line::Tcp);
  if constexpr (!std::is_same_v<Contestant, BlockingThread>)
    RegisterRoundTrip<Contestant>(kRoundTripTerminal, Line::PseudoTerminal);
  RegisterTransfer<Contestant>(kReceiving, Receive<Contestant>);
}

template <class Contestant>
void RegisterContestant() {
  RegisterReceiver<Contestant>();
  RegisterTransfer<Contestant>(kSending, Send<Contestant>);
  RegisterTransfer<Contestant>(kEchoing, EchoLargeMessage<Contestant>);
}

}  // namespace

void RegisterCases() {
  RegisterContestant<BareDescriptor>();
  RegisterContestant<HandWrittenThread>();
  RegisterReceiver<LargeReadsThread>();  // they send as the hand-written thread does
  RegisterReceiver<BlockingThread>();
  RegisterContestant<AsioStream>();
  RegisterContestant<Quorvio>();
  RegisterQuery<HandWrittenClient>();
  RegisterQuery<CFunctionsClient>();
  RegisterQuery<QueryClient>();
}

}  // namespace qvbench
