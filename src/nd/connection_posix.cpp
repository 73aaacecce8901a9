#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "nd/connection.h"
#include "nd/errors.h"
#include "nd/interface_sockets.h"
#include "nd/log.h"
#include "util/system_call.h"

namespace quorvind {
namespace {

using std::chrono::steady_clock;

/// Datagrams taken from one network in a row before the others get a turn.
constexpr uint32_t kLongestRun = 16;

/// After this many datagrams in quick succession more are likely to follow. The receiver then rests and takes
/// them together, because a wake-up costs more than handling an answer.
constexpr uint32_t kBurst = 16;
constexpr auto kSoon = std::chrono::milliseconds(2);
constexpr auto kRestInBurst = std::chrono::milliseconds(1);

/// 0 or the errno of the failure.
int SendOn(const NetworkSocket* network, const Bytes& data) {
  return network != nullptr ? SendTo(*network, data) : ENODEV;
}

[[noreturn]] void ThrowNotSent(int error) { ThrowSystemFailure("Could not send datagram", error); }

/// The event of the socket set is polled too, so that a close or new sockets end the wait at once.
void WaitForInput(const SocketSet& sockets, steady_clock::time_point deadline) {
  std::vector<pollfd> entries{{sockets.outdated.get(), POLLIN, 0}};
  for (const auto& pair : sockets.pairs) {
    if (!pair) continue;
    for (const auto& network : *pair) entries.push_back({network.descriptor.get(), POLLIN, 0});
  }
  if (cppu::PollUntil(entries, deadline) < 0) ThrowSystemFailure("select() failed");
}

/// Ends at once when the set is replaced or the connection closed.
void Rest(const SocketSet& sockets) {
  std::array<pollfd, 1> outdated{{{sockets.outdated.get(), POLLIN, 0}}};
  if (cppu::PollUntil(outdated, steady_clock::now() + kRestInBurst) < 0)
    ThrowSystemFailure("select() failed");
}

class ConnectionPosix final : public Connection {
 public:
  explicit ConnectionPosix(const IP4Set& interfaces) : sockets_({interfaces.begin(), interfaces.end()}) {}

  /// First nobody may enter, then those inside are woken. In the other order a call could enter in between
  /// and sleep on sockets that nobody wakes any more.
  void Close(bool wait) override {
    std::unique_lock lock(mutex_);
    open_ = false;
    lock.unlock();
    sockets_.close();
    if (!wait) return;
    lock.lock();
    allLeft_.wait(lock, [this] { return activeCalls_ == 0; });
  }

  void Abandon() noexcept override { sockets_.abandon(); }

  [[nodiscard]] std::string NetworkName(uint32_t networkId) const override {
    if (networkId > networkCount()) throw InvalidArgumentException("Network id out of range");
    if (networkId != 0) return nameOf(networkId - 1);
    std::string names;
    for (uint32_t i = 0; i < networkCount(); ++i) names += (names.empty() ? "" : ", ") + nameOf(i);
    return names;
  }

  bool Receive(uint32_t& networkId, IP4& sender, Bytes& data, int64_t timeoutMs) override {
    const ActiveCall call(*this);
    if (!call) return false;
    const auto deadline = steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    do {
      const auto now = steady_clock::now();
      sockets_.refreshIfDue(now);
      // This turn keeps the set alive: no descriptor is closed under a call, even if the set is replaced.
      const auto sockets = sockets_.current();
      const auto arrival = take(*sockets, networkId, sender, data);
      if (arrival == Arrival::Datagram) {
        noteArrival(now);
        return true;
      }
      if (now >= deadline) return false;
      // Something was dropped, so more may be waiting: no reason to sleep yet.
      if (arrival == Arrival::Ignored) continue;
      if (isInBurst(now)) {
        Rest(*sockets);
      } else {
        WaitForInput(*sockets, std::min(deadline, sockets_.nextCheck()));
      }
    } while (isOpen());
    return false;
  }

  void Send(uint32_t networkId, const Bytes& data) override {
    const ActiveCall call(*this);
    if (!call) return;
    if (networkId > networkCount()) throw InvalidArgumentException("Network ID out of range");
    if (networkId == 0) {
      sockets_.refresh();  // so that a search reaches an interface that has just come back
      return sendOnAll(*sockets_.current(), data);
    }
    const uint32_t index = networkId - 1;
    int error = SendOn(sockets_.current()->network(index), data);
    // The interface may have been replaced since the last look: one more try with new sockets.
    if (error != 0 && sockets_.refresh()) error = SendOn(sockets_.current()->network(index), data);
    if (error != 0) ThrowNotSent(error);
  }

 private:
  /// Marks a running Send or Receive, which Close may wait for; false on a closed connection.
  class ActiveCall {
   public:
    explicit ActiveCall(ConnectionPosix& connection) : connection_(connection) {
      const std::lock_guard lock(connection_.mutex_);
      entered_ = connection_.open_;
      if (entered_) ++connection_.activeCalls_;
    }
    ActiveCall(const ActiveCall&) = delete;
    ActiveCall& operator=(const ActiveCall&) = delete;
    ~ActiveCall() {
      if (!entered_) return;
      const std::lock_guard lock(connection_.mutex_);
      if (--connection_.activeCalls_ == 0) connection_.allLeft_.notify_all();
    }
    explicit operator bool() const { return entered_; }

   private:
    ConnectionPosix& connection_;
    bool entered_;
  };

  [[nodiscard]] uint32_t networkCount() const {
    return 2 * static_cast<uint32_t>(sockets_.addresses().size());
  }

  [[nodiscard]] std::string nameOf(uint32_t index) const {
    const auto* const kind = index % 2 == 0 ? "Broadcast (" : "Multicast (";
    return kind + IP4ToString(sockets_.addresses()[index / 2]) + ")";
  }

  [[nodiscard]] bool isOpen() {
    const std::lock_guard lock(mutex_);
    return open_;
  }

  /// Relaxed: this is an estimate, and a fence would cost on every datagram.
  void noteArrival(steady_clock::time_point now) {
    const auto before = lastArrival_.exchange(now, std::memory_order_relaxed);
    const auto inARow = now - before < kSoon ? inARow_.load(std::memory_order_relaxed) + 1 : 0;
    inARow_.store(inARow, std::memory_order_relaxed);
  }

  [[nodiscard]] bool isInBurst(steady_clock::time_point now) const {
    return inARow_.load(std::memory_order_relaxed) >= kBurst &&
           now - lastArrival_.load(std::memory_order_relaxed) < kSoon;
  }

  /// It is enough to reach one network.
  void sendOnAll(const SocketSet& sockets, const Bytes& data) const {
    int failure = 0;
    bool isSent = false;
    for (uint32_t i = 0; i < networkCount(); ++i) {
      const auto* const network = sockets.network(i);
      // A network that only listens neither sends nor fails.
      if (network != nullptr && !CanSend(*network)) continue;
      const int error = SendOn(network, data);
      if (error == 0) isSent = true;
      if (error != 0) failure = error;
    }
    if (failure == 0) return;
    if (!isSent) ThrowNotSent(failure);
    LogSystemWarning("Could not send on every network", failure);
  }

  /// Tries every network once, first the one that delivered last: a poll for each answer would cost as much
  /// as the answer.
  Arrival take(const SocketSet& sockets, uint32_t& networkId, IP4& sender, Bytes& data) {
    const auto turn = turn_.load(std::memory_order_relaxed);
    auto result = Arrival::Nothing;
    for (uint32_t i = 0; i < networkCount(); ++i) {
      const uint32_t index = (turn / kLongestRun + i) % networkCount();
      const auto arrival = receiveOn(sockets.network(index), sender, data);
      if (arrival == Arrival::Ignored) result = arrival;
      if (arrival != Arrival::Datagram) continue;
      // Counts the datagrams of this network; after kLongestRun the quotient moves on to the next one.
      turn_.store((i == 0 ? turn : index * kLongestRun) + 1, std::memory_order_relaxed);
      networkId = index + 1;
      return arrival;
    }
    return result;
  }

  Arrival receiveOn(const NetworkSocket* network, IP4& sender, Bytes& data) {
    if (network == nullptr) return Arrival::Nothing;
    try {
      return ReceiveFrom(*network, sender, data);
    } catch (const NetworkException&) {
      if (sockets_.refresh()) return Arrival::Ignored;  // of an interface that is gone
      throw;
    }
  }

  InterfaceSockets sockets_;
  std::atomic<uint32_t> turn_ = 0;  ///< the network to look at first, in steps of kLongestRun
  std::atomic<steady_clock::time_point> lastArrival_ = steady_clock::time_point();
  std::atomic<uint32_t> inARow_ = 0;  ///< datagrams that came soon after the one before
  std::mutex mutex_;                  ///< guards open_ and activeCalls_; a leaf, never held in a socket call
  std::condition_variable allLeft_;
  bool open_ = true;
  uint32_t activeCalls_ = 0;
};

}  // namespace

std::unique_ptr<Connection> CreateConnection(const IP4Set& interfaces) {
  return std::make_unique<ConnectionPosix>(interfaces);
}

}  // namespace quorvind
