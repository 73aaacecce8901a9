#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <system_error>

#include "life.h"
#include "quorvio/quorvio.hpp"
#include "stream.h"
#include "tests/support/wait.h"
#include "util/scope_exit.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;
using quorvio::Channel;
using quorvio::Errc;
using quorvio::Error;
using qvsim::Fault;
using qvsim::Link;

constexpr auto kPatience = 20s;      ///< far above what anything takes on a loaded machine
constexpr auto kLongestClose = 10s;  ///< 5 s by its promise
constexpr std::size_t kOnTheirWay = 65536;

quorvio::Options OptionsOf(const qvsim::Peer& peer) {
  return quorvio::Options::fromLines(peer.options() + "\ntx-timeout 3000");
}

/// Opens, and tries again while a chip may not be there yet: one that was closed without wait, or plugged in
/// a moment ago.
template <class Open>
auto OpenPatiently(Link link, Open open) {
  const auto limit = Clock::now() + kPatience;
  while (true) {
    try {
      return open();
    } catch (const Error& error) {
      const bool mayBeMissing = error.code() == Errc::deviceNotFound || error.code() == Errc::driverFailure;
      if (link != Link::Usb || !mayBeMissing || Clock::now() > limit) throw;
    }
    std::this_thread::sleep_for(5ms);
  }
}

/// Mostly small messages, now and then one that fills every buffer on the way.
std::size_t DrawSize(Place& place) {
  const auto most = std::size_t{1} << place.draw(3U, 13U);
  return place.draw(0, 99) == 0 ? place.draw<std::size_t>(1, 200'000) : place.draw<std::size_t>(1, most);
}

/// One channel and its echoing peer: what was sent comes back, and nothing else.
class Talk {
 public:
  Talk(Place& place, Link link, qvsim::Peer& peer)
      : place_(place),
        link_(link),
        peer_(peer),
        stream_(place.random()),
        channel_(OpenPatiently(link, [&] { return Channel(peer.locator(), OptionsOf(peer)); })) {
    count("opens");
  }
  Talk(const Talk&) = delete;
  Talk& operator=(const Talk&) = delete;
  ~Talk() { count("bytes sent and checked", received_); }

  void exchangeUntil(Clock::time_point end) {
    while (Clock::now() < end) {
      send(DrawSize(place_));
      receive(onTheirWay() > kOnTheirWay ? onTheirWay() : place_.draw<std::size_t>(0, onTheirWay()));
      place_.pause(0ms, 20ms);
    }
  }

  // The endings.

  void closeInSilence() {
    receive(onTheirWay());
    if (channel_.available() > 0) violation("more bytes than were sent");
    close();
  }

  void closeWithBytesOnTheirWay() {
    send(DrawSize(place_));
    close();
  }

  void goOnAfterStall() {
    peer_.stall(true);
    auto sending = std::async(std::launch::async, [this] { send(1U << 20U); });
    place_.pause(20ms, 200ms);
    peer_.stall(false);
    sending.get();
    closeInSilence();
  }

  void closeBlockedSend() {
    auto sending = blockSend();
    close();
    requireOneOf({Errc::transmitFailed, Errc::invalidHandle}, sending.get(), "a send that was closed");
  }

  void losePeer() {
    send(DrawSize(place_));
    lose();
    close();
  }

  void losePeerInBlockedSend() {
    auto sending = blockSend();
    const auto fault = lose();
    close();
    const auto result = sending.get();
    if (!result && fault == Fault::EndsSending) return;  // it still receives
    requireOneOf({Errc::transmitFailed, Errc::connectionLost, Errc::invalidHandle}, result,
                 "a send without a peer");
  }

 private:
  void count(const char* what, uint64_t number = 1) const {
    place_.scene.report.count(NameOf(link_) + ": " + what, number);
  }
  void violation(const std::string& text) const {
    place_.scene.report.violation(NameOf(link_) + " channel " + std::to_string(place_.number) + ": " + text);
  }
  void requireOneOf(std::initializer_list<Errc> allowed, std::error_code code, const char* what) const {
    if (std::ranges::find(allowed, code) == allowed.end()) violation(what + (": " + code.message()));
  }

  [[nodiscard]] std::size_t onTheirWay() const { return sent_ - received_; }

  void send(std::size_t size) {
    const auto piece = stream_.bytes(sent_, size);
    sent_ += size;
    channel_.send(piece);
  }

  void receive(std::size_t size) { check(channel_.readExactly(size, kPatience)); }

  void check(std::string_view bytes) {
    if (const auto fault = stream_.faultOf(bytes, received_)) violation(*fault);
    received_ += bytes.size();
  }

  /// A send that the peer does not take; gives its result.
  std::future<std::error_code> blockSend() {
    static const std::string kMoreThanFits(std::size_t{16} << 20U, '.');
    receive(onTheirWay());
    peer_.stall(true);
    auto sending = std::async(std::launch::async, [this]() -> std::error_code {
      try {
        channel_.send(kMoreThanFits);
        return {};
      } catch (const Error& error) {
        return error.code();
      }
    });
    if (!qvtest::Eventually([&] { return peer_.holdsUp(); })) violation("no send reached the stalled peer");
    return sending;
  }

  /// The peer is lost, which must be reported, after the bytes that came before.
  Fault lose() {
    const auto faults = FaultsOf(link_);
    const auto fault = faults[place_.draw<std::size_t>(0, faults.size() - 1)];
    if (const auto early = channel_.waitLost(0ms)) violation("lost without a cause: " + early->message());
    peer_.suffer(fault);
    const auto why = channel_.waitLost(kPatience);
    if (!why) violation("not reported that the peer " + NameOf(fault));
    // A terminal that hangs up during a read fails it.
    if (why && (link_ != Link::Terminal || *why != Errc::receiveFailed))
      requireOneOf({Errc::connectionLost}, *why, "a notice");
    if (channel_.available() > 0) check(channel_.read());
    if (received_ > sent_) violation("more bytes than were sent");
    count(("peer " + NameOf(fault)).c_str());
    if (fault == Fault::Vanishes) refuseOpening();
    return fault;
  }

  /// A device that is gone cannot be opened. A TCP port may belong to somebody else by now.
  void refuseOpening() {
    try {
      const Channel other(peer_.locator(), OptionsOf(peer_));
      if (link_ != Link::Tcp) violation("a device that is gone was opened");
    } catch (const Error& error) {
      requireOneOf({Errc::deviceNotFound, Errc::driverFailure, Errc::noFreeHandle}, error.code(),
                   "opening a device that is gone");
    }
  }

  void close() {
    const auto began = Clock::now();
    channel_.close();
    if (Clock::now() - began > kLongestClose) violation("closing took too long");
  }

  Place& place_;
  const Link link_;
  qvsim::Peer& peer_;
  const Stream stream_;
  Channel channel_;
  std::size_t sent_ = 0;
  std::size_t received_ = 0;
};

struct Ending {
  const char* name;
  void (Talk::*end)();
  bool keepsPeer;  ///< the peer can be opened again, and nothing is on its way
};

constexpr std::array kEndings{
    Ending{"closed in silence", &Talk::closeInSilence, true},
    Ending{"closed with bytes on their way", &Talk::closeWithBytesOnTheirWay, false},
    Ending{"closed after a stall", &Talk::goOnAfterStall, true},
    Ending{"closed during a blocked send", &Talk::closeBlockedSend, false},
    Ending{"closed after the peer was lost", &Talk::losePeer, false},
    Ending{"closed, peer lost during a blocked send", &Talk::losePeerInBlockedSend, false}};

// Visits use the C functions: quorvio.hpp cannot close without wait, and drops callbacks that come after a
// close, which must be noticed here.

/// The user data of a visit. A callback may come after a close without wait.
struct Witness {
  Report* report = nullptr;
  Stream stream{0};
  uint64_t received = 0;  ///< receive thread
  std::atomic<uint32_t> handle = 0;
  std::atomic<bool> closes = false;  ///< in its callback
  std::atomic<bool> isClosed = false;
  std::atomic<bool> isFlooded = false;  ///< by bytes that were not sent
  std::atomic<bool> isSilent = false;   ///< closed with wait
  std::atomic<bool> isLeft = false;     ///< closed without wait: notices are of no interest
  std::atomic<bool> isCalled = false;   ///< a callback runs
};

/// Those of the last minute. Later callbacks are not expected.
Witness& NextWitness() {
  static std::array<Witness, 16384> all;
  static std::atomic<std::size_t> next = 0;
  return all.at(next++ % all.size());
}

void OnReceive(void* user, const uint8_t* data, std::size_t length) {
  auto& witness = *static_cast<Witness*>(user);
  if (witness.isSilent) witness.report->violation("a callback after a close with wait");
  witness.isCalled = true;
  const cppu::ScopeExit end([&] { witness.isCalled = false; });
  if (witness.isFlooded) std::this_thread::sleep_for(200us);  // so that the close meets a callback
  const std::string_view bytes(reinterpret_cast<const char*>(data), length);
  if (!witness.isFlooded) {  // explaining what a flood is not takes seconds
    const auto fault = witness.stream.faultOf(bytes, witness.received);
    if (fault) witness.report->violation("a visit: " + *fault);
  }
  witness.received += length;
  if (!witness.closes.exchange(false)) return;
  // Asked to wait, which a callback of the handle never does.
  if (QV_IO_Close(witness.handle, 1) != QV_IO_OK) witness.report->violation("a close in a callback failed");
  witness.isClosed = true;
}

void OnError(void* user, uint32_t code) {
  auto& witness = *static_cast<Witness*>(user);
  if (!witness.isLeft) witness.report->violation("a visit got notice " + std::to_string(code));
}

uint32_t OpenForVisit(const qvsim::Peer& peer, Witness& witness) {
  uint32_t handle = 0;
  const auto result = QV_IO_Open(&handle, peer.locator().c_str(), OptionsOf(peer).text().c_str(), &witness,
                                 OnReceive, OnError);
  if (result != QV_IO_OK) throw Error(static_cast<Errc>(result), "a visit to " + peer.locator());
  return handle;
}

void CloseInCallback(uint32_t handle, Witness& witness) {
  witness.handle = handle;
  witness.closes = true;
  const auto bytes = witness.stream.bytes(0, 1000);
  QV_IO_Send(handle, bytes.data(),
             bytes.size());  // may fail: the first byte that comes back closes the handle
  if (!qvtest::Eventually([&] { return witness.isClosed.load(); }))
    witness.report->violation("the bytes that close a handle did not come back");
}

}  // namespace

/// A peer and the channels to it, one after the other.
void Converse(Place& place, Link link) {
  const auto peer = MakePeer(link, place.scene.workshop, ChipName(place.number));
  const auto longest = place.number % 8 == 0 ? 20'000 : 3000;
  bool hasPeer = true;
  while (hasPeer && Clock::now() < place.end) {
    Talk talk(place, link, *peer);
    talk.exchangeUntil(
        std::min(place.end, Clock::now() + std::chrono::milliseconds(place.draw(20, longest))));
    const auto& ending = kEndings.at(place.draw<std::size_t>(0, kEndings.size() - 1));
    std::invoke(ending.end, talk);
    place.scene.report.count(NameOf(link) + ": " + ending.name);
    hasPeer = ending.keepsPeer;
  }
}

/// Opens a device and closes it at once, in every way, with bytes on their way or not.
void Visit(Place& place) {
  place.pause(1ms, 20ms);
  const auto link = qvsim::kLinks.at(place.draw<std::size_t>(0, qvsim::kLinks.size() - 1));
  const auto peer = MakePeer(link, place.scene.workshop, ChipName(place.number));
  auto& witness = NextWitness();
  witness.report = &place.scene.report;
  witness.stream = Stream(place.random());
  witness.received = 0;
  witness.isClosed = witness.isFlooded = witness.isSilent = witness.isLeft = false;
  const auto handle = OpenPatiently(link, [&] { return OpenForVisit(*peer, witness); });
  const auto way = place.draw(0, 3);
  if (way == 0) return CloseInCallback(handle, witness);
  const auto bytes = witness.stream.bytes(0, DrawSize(place));
  if (place.draw(0, 1) == 0 && QV_IO_Send(handle, bytes.data(), bytes.size()) != QV_IO_OK)
    place.scene.report.violation("a send of a visit failed");
  if (place.draw(0, 2) == 0) witness.isFlooded = true, peer->flood();
  place.pause(0ms, 2ms);
  witness.isLeft = way == 1;  // the peer goes before the receive thread has noticed the close
  if (QV_IO_Close(handle, way == 1 ? 0 : 1) != QV_IO_OK) place.scene.report.violation("a close failed");
  witness.isSilent = way != 1;
  if (witness.isSilent && witness.isCalled)
    place.scene.report.violation("a callback still runs after a close with wait");
}

}  // namespace qvsoak
