#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "descriptor.h"
#include "discovery_measures.h"
#include "limit_table.h"
#include "nd/device_filter.h"
#include "nd/host.h"
#include "nd/packet.h"
#include "sim/discovery_side.h"

namespace qvbench {
namespace {

using namespace quorvind;

constexpr std::size_t kRounds = 31;
constexpr std::size_t kPerRound = 500;

/// Median over the rounds, in nanoseconds for each of the round's datagrams.
template <class Prepare, class Work>
double NanosecondsEach(Prepare prepare, Work work) {
  std::vector<double> times(kRounds);
  for (auto& time : times) {
    prepare();
    const auto begin = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < kPerRound; ++i) work(i);
    const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - begin;
    time = taken.count() / kPerRound;
  }
  std::ranges::sort(times);
  return times[kRounds / 2];
}

template <class Work>
double NanosecondsEach(Work work) {
  return NanosecondsEach([] {}, work);
}

/// A socket pair whose receiver holds a round's datagrams.
class BareReceiver {
 public:
  BareReceiver() : receiver_(Open()), sender_(Open()) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Require(::bind(receiver_.get(), reinterpret_cast<sockaddr*>(&name), sizeof name) == 0, "bind");
    socklen_t size = sizeof name;
    ::getsockname(receiver_.get(), reinterpret_cast<sockaddr*>(&name), &size);
    Require(::connect(sender_.get(), reinterpret_cast<sockaddr*>(&name), sizeof name) == 0, "connect");
    const int buffer = 4 << 20;
    ::setsockopt(receiver_.get(), SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  }
  void fill(const Bytes& datagram) const {
    for (std::size_t i = 0; i < kPerRound / 2; ++i)
      ::send(sender_.get(), datagram.data(), datagram.size(), 0);
  }
  void receive() const {
    std::array<uint8_t, 1024> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): received
    sockaddr_in source{};
    socklen_t size = sizeof source;
    Require(::recvfrom(receiver_.get(), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&source),
                       &size) > 0,
            "recvfrom");
  }

 private:
  static Descriptor Open() { return {::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"}; }

  Descriptor receiver_;
  Descriptor sender_;
};

DiscoverInfo Device(std::size_t number) {
  return {.DeviceType = 7,
          .SerialNumber = "BENCH-" + std::to_string(100000 + number),
          .Address = {10, 0, static_cast<uint8_t>(number >> 8U), static_cast<uint8_t>(number)},
          .ProtocolId = 1,
          .Port = 5000,
          .Available = true,
          .Info = "Axis"};
}

/// An answer of a known device, by how many devices are known.
double FilterNanoseconds(std::size_t known) {
  const auto host = std::make_shared<Host>();
  const auto ignore = [](const DiscoverInfo&) {};
  DeviceFilter filter(
      host, ignore, [](const DiscoverInfo&, auto) {}, ignore, kAnyDeviceType, 0, false);
  std::vector<DiscoverInfo> answers;
  for (std::size_t i = 0; i < known; ++i) answers.push_back(Device(i));
  for (const auto& answer : answers) filter.onDiscoverInfo(answer);
  return NanosecondsEach([&](std::size_t i) { filter.onDiscoverInfo(answers[i * 7919 % known]); });
}

}  // namespace

void MeasureDatagrams() {
  const qvsim::DiscoverySide device({.serialNumber = "BENCH-100000"}, {});
  const auto packet = device.inform();
  const auto datagram = EncodePacket(packet);
  const BareReceiver bare;
  const auto receive = NanosecondsEach([&] { bare.fill(datagram), bare.fill(datagram); },
                                       [&](std::size_t) { bare.receive(); });
  PrintLimit("bare receive of an answer", receive, -1, "ns");
  const auto print = [&](const std::string& what, double time, double limit) {
    PrintLimit(what.c_str(), time, limit, "ns");
    PrintLimit((what + ", against the bare receive").c_str(), time / receive, -1, "of its time");
  };
  print("encode an answer", NanosecondsEach([&](std::size_t) { EncodePacket(packet); }), -1);
  print("decode an answer", NanosecondsEach([&](std::size_t) {
          QV_ND_Packet decoded;
          Require(DecodePacket(datagram, decoded), "decode");
        }),
        -1);
  for (const std::size_t known : {1U, 10U, 100U, 1000U, 10000U})
    print("filter an answer, " + std::to_string(known) + " devices known", FilterNanoseconds(known), 2000);
}

}  // namespace qvbench
