#include "sim/controller_group.h"

#include <cstdio>
#include <stdexcept>
#include <thread>
#include <utility>

#include "nd/errors.h"

namespace qvsim {
namespace {

using namespace quorvind;
using std::chrono::milliseconds;

constexpr uint32_t kBroadcast = 1;  // network ids of a connection over one interface
constexpr uint32_t kMulticast = 2;
// More are lost, as in a device's full receive buffer: else a flood of searches would be answered long after
// it.
constexpr std::size_t kMostWaiting = 100;
constexpr milliseconds kRestAfterFault{100};

IP4 ReadAddress(const std::string& text) {
  const auto address = IP4FromString(text);
  if (!address) throw std::invalid_argument("not a dotted IPv4 address: " + text);
  return *address;
}

}  // namespace

ControllerGroup::ControllerGroup(EventLoop& loop, const GroupSettings& settings)
    : loop_(loop),
      address_(settings.address),
      connection_(CreateConnection({ReadAddress(settings.address)})),
      longestWait_(settings.longestWait),
      spread_(settings.spread),
      faults_(settings.faults),
      random_(settings.seed),
      receiver_([this] { receive(); }) {}

ControllerGroup::~ControllerGroup() {
  ended_ = true;
  connection_->Close(true);
  receiver_.join();
  std::map<std::string, Member> members;
  loop_.run([&] {
    alive_.reset();
    members.swap(members_);
  });
}

/// The thread. A socket that keeps failing must neither end the controllers nor cost a core.
void ControllerGroup::receive() {
  while (!ended_) {
    try {
      receiveOnce();
    } catch (const NetworkException& failure) {
      std::fprintf(stderr, "qvio-sim: %s\n", failure.what());
      std::this_thread::sleep_for(kRestAfterFault);
    }
  }
}

/// Hands the loop what may concern a controller: not the answers of all the others.
void ControllerGroup::receiveOnce() {
  uint32_t networkId = 0;
  IP4 sender{};
  Bytes datagram;
  if (!connection_->Receive(networkId, sender, datagram, longestWait_.count())) return;
  QV_ND_Packet packet;
  if (!DecodePacket(datagram, packet) || (packet.OpCode & 0x80U) != 0) return;
  if (waiting_ >= kMostWaiting) return;
  ++waiting_;
  loop_.post([this, alive = std::weak_ptr(alive_), packet, networkId] {
    if (alive.expired()) return;
    --waiting_;
    handle(packet, networkId);
  });
}

void ControllerGroup::handle(const QV_ND_Packet& request, uint32_t networkId) {
  if (request.OpCode == opcode::kDiscoverRequest) ++requestsHeard_;
  const auto one = members_.find(request.SerialNumber);
  if (one != members_.end()) return answer(one->second, request, networkId);
  if (!request.SerialNumber.empty()) return;
  for (auto& [serialNumber, member] : members_) answer(member, request, networkId);
}

void ControllerGroup::answer(Member& member, const QV_ND_Packet& request, uint32_t networkId) {
  if (!member.tcp || !member.discovery.isAddressedBy(request)) return;
  if (std::uniform_real_distribution(0.0, 1.0)(random_) < faults_.drop) return;
  auto packet = member.discovery.answer(request, faults_.refusal);
  if (faults_.wrongToken) packet.Token[0] ^= 0xFFU;
  const bool isDiscovery = request.OpCode == opcode::kDiscoverRequest;
  const auto longest = isDiscovery ? spread_.count() : 0;
  const milliseconds moment(std::uniform_int_distribution<milliseconds::rep>(0, longest)(random_));
  for (int copy = 0; copy < (faults_.duplicate ? 2 : 1); ++copy)
    sendLater(moment + faults_.delay, networkId, packet);
}

void ControllerGroup::announce(const Member& member) {
  for (const auto networkId : {kBroadcast, kMulticast}) sendLater({}, networkId, member.discovery.inform());
}

void ControllerGroup::sendLater(milliseconds time, uint32_t networkId, const QV_ND_Packet& packet) {
  if (time.count() == 0) return send(networkId, EncodePacket(packet));
  loop_.after(time, [this, alive = std::weak_ptr(alive_), networkId, datagram = EncodePacket(packet)] {
    if (!alive.expired()) send(networkId, datagram);
  });
}

void ControllerGroup::send(uint32_t networkId, const Bytes& datagram) try {
  if (faults_.malformed) connection_->Send(networkId, MalformedDatagram(malformedSent_++));
  connection_->Send(networkId, datagram);
} catch (const NetworkException& failure) {  // its interface is down: a device loses its answer, too
  std::fprintf(stderr, "qvio-sim: %s\n", failure.what());
}

std::unique_ptr<NetworkDevice> ControllerGroup::listen(const MakeResponder& makeResponder, uint16_t port) {
  return std::make_unique<NetworkDevice>(loop_, address_, port, makeResponder);
}

uint16_t ControllerGroup::add(const DiscoverySide::Identity& identity, MakeResponder makeResponder,
                              uint16_t port) {
  const auto address = ReadAddress(address_);
  const DeviceConfig config{
      .IP = address, .SubnetMask = {255, 255, 255, 0}, .Gateway = {address[0], address[1], address[2], 254}};
  Member member{DiscoverySide(identity, config), std::move(makeResponder), nullptr};
  member.tcp = listen(member.makeResponder, port);
  const auto actualPort = member.discovery.port = member.tcp->port();
  loop_.run([&] {
    const auto [added, isNew] = members_.try_emplace(identity.serialNumber, std::move(member));
    if (!isNew) throw std::invalid_argument("there is a controller " + identity.serialNumber);
    announce(added->second);
  });
  return actualPort;
}

bool ControllerGroup::change(const std::string& serialNumber, const std::function<void(Member&)>& action) {
  bool found = false;
  loop_.run([&] {
    const auto member = members_.find(serialNumber);
    found = member != members_.end();
    if (found) action(member->second);
  });
  return found;
}

bool ControllerGroup::setAvailable(const std::string& serialNumber, bool available) {
  return change(serialNumber, [&](Member& member) {
    member.discovery.available = available;
    if (member.tcp) announce(member);
  });
}

bool ControllerGroup::leave(const std::string& serialNumber) {
  std::unique_ptr<NetworkDevice> tcp;  // not destroyed on the loop's thread
  return change(serialNumber, [&](Member& member) {
    tcp = std::move(member.tcp);
    const bool available = std::exchange(member.discovery.available, false);
    if (tcp) announce(member);
    member.discovery.available = available;
  });
}

bool ControllerGroup::vanish(const std::string& serialNumber) {
  std::unique_ptr<NetworkDevice> tcp;
  return change(serialNumber, [&](Member& member) { tcp = std::move(member.tcp); });
}

bool ControllerGroup::comeBack(const std::string& serialNumber) {
  MakeResponder makeResponder;
  uint16_t port = 0;
  bool isThere = false;
  const bool known = change(serialNumber, [&](Member& member) {
    makeResponder = member.makeResponder;
    port = member.discovery.port;
    isThere = member.tcp != nullptr;
  });
  if (!known || isThere) return known;
  auto tcp = listen(makeResponder, port);
  return change(serialNumber, [&](Member& member) {
    member.tcp = std::move(tcp);
    announce(member);
  });
}

bool ControllerGroup::changePort(const std::string& serialNumber) {
  MakeResponder makeResponder;
  if (!change(serialNumber, [&](Member& member) { makeResponder = member.makeResponder; })) return false;
  auto tcp = listen(makeResponder, 0);
  return change(serialNumber, [&](Member& member) {
    member.discovery.port = tcp->port();
    std::swap(member.tcp, tcp);
    announce(member);
  });
}

void ControllerGroup::setFaults(const DiscoveryFaults& faults) {
  loop_.run([&] { faults_ = faults; });
}

}  // namespace qvsim
