// The library beside other code that does the same.

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "contestants.h"
#include "quorvio/quorvio.hpp"

namespace qvbench {
namespace {

constexpr int kRoundTrips = 500;  // short, so that a disturbance of the machine does not meet one side alone
constexpr std::chrono::seconds kPatience{10};

// One piece of work of each kind, for any contestant.

template <class Contestant>
void RoundTrip(Contestant& contestant) {
  const std::array<uint8_t, 64> request{};
  contestant.send(request);
  contestant.receive(request.size());
}

template <class Contestant>
void Receive(Contestant& contestant) {
  contestant.send(std::array<uint8_t, 1>{});
  contestant.receive(kBulk);
}

template <class Contestant>
void Send(Contestant& contestant) {
  static const std::vector<uint8_t> piece(kLargePiece);
  for (std::size_t sent = 0; sent < kBulk; sent += piece.size()) contestant.send(piece);
  contestant.receive(1);
}

template <class Client>
void Query(Client& client) {
  static const std::string request = std::string(63, 'x') + '\n';
  Require(client.ask(request).size() == 63, "whole answer");
}

/// A client that asks and waits, as applications write it: received text under a lock.
template <class Transport>
class LineClient {
 public:
  explicit LineClient(const Address& address) : transport_(address, this, onReceive) {}

  std::string ask(std::string_view request) {
    std::unique_lock lock(mutex_);
    received_.clear();
    lock.unlock();
    transport_.send({reinterpret_cast<const uint8_t*>(request.data()), request.size()});
    lock.lock();
    std::size_t end = 0;
    const auto isComplete = [&] { return (end = received_.find('\n')) != std::string::npos; };
    Require(arrived_.wait_for(lock, kPatience, isComplete), "answer");
    return received_.substr(0, end);
  }

 private:
  static void onReceive(void* self, const uint8_t* data, std::size_t length) {
    auto& client = *static_cast<LineClient*>(self);
    {
      const std::lock_guard lock(client.mutex_);
      client.received_.append(reinterpret_cast<const char*>(data), length);
    }
    client.arrived_.notify_one();
  }

  std::mutex mutex_;  ///< guards received_
  std::condition_variable arrived_;
  std::string received_;
  Transport transport_;
};

/// quorvio.hpp.
class QueryClient {
 public:
  explicit QueryClient(const Address& address)
      : channel_(address.locator(), quorvio::Options::fromLines(address.options())) {}

  std::string ask(std::string_view request) { return channel_.query(request, "\n", kPatience); }

 private:
  quorvio::Channel channel_;
};

template <class Contestant>
using Work = void (*)(Contestant&);

/// A row: the same work by both, each with a far end of its own.
template <class Ours, class Theirs>
void Register(const std::string& name, int count, Line line, FarEnd::Script script, Work<Ours> work,
              Work<Theirs> theirWork) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [=](benchmark::State& state) {
                                 const FarEnd farEnd(line, script);
                                 const FarEnd theirFarEnd(line, script);
                                 Ours ours(farEnd.address());
                                 Theirs theirs(theirFarEnd.address());
                                 CompareByTurns(
                                     state, count, [&] { work(ours); }, [&] { theirWork(theirs); });
                               })
      ->UseManualTime()
      ->Iterations(count)
      ->Unit(count == 2 ? benchmark::kMillisecond : benchmark::kMicrosecond);
}

template <class Other>
void RegisterAgainst(const std::string& other) {
  Register<Library, Other>("64-byte round trip, TCP" + other, kRoundTrips, Line::Tcp, Echo, RoundTrip,
                           RoundTrip);
  Register<Library, Other>("64-byte round trip, terminal" + other, kRoundTrips, Line::Terminal, Echo,
                           RoundTrip, RoundTrip);
  Register<Library, Other>("receive 512 MiB, TCP" + other, 2, Line::Tcp, Flood, Receive, Receive);
  Register<Library, Other>("send 512 MiB in 64-KiB pieces, TCP" + other, 2, Line::Tcp, Swallow, Send, Send);
}

[[maybe_unused]] const bool kRegistered = [] {
  RegisterAgainst<HandWritten>(" | hand-written thread");
  RegisterAgainst<AsioStream>(" | Asio");
  const std::string query = "64-byte query, TCP | ";
  Register<QueryClient, LineClient<HandWritten>>(query + "hand-written thread", kRoundTrips, Line::Tcp, Echo,
                                                 Query, Query);
  Register<QueryClient, LineClient<Library>>(query + "C functions", kRoundTrips, Line::Tcp, Echo, Query,
                                             Query);
  return true;
}();

}  // namespace
}  // namespace qvbench
