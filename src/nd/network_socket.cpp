#include "nd/network_socket.h"

#include <sys/socket.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "nd/errors.h"
#include "util/system_call.h"

namespace quorvind {
namespace {

constexpr std::size_t kLargestDatagram = 1024;

/// Room for the one control message of a datagram.
struct alignas(cmsghdr) PacketInfoMessage {
  std::array<unsigned char, CMSG_SPACE(sizeof(in_pktinfo))> bytes{};
};

int Checked(int result, std::string_view text) {
  if (result < 0) ThrowSystemFailure(text);
  return result;
}

in_addr ToInAddr(const IP4& address) { return std::bit_cast<in_addr>(address); }

sockaddr_in SocketAddress(const IP4& address, uint16_t port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr = ToInAddr(address);
  return name;
}

int Bind(const cppu::UniqueFd& socket, const sockaddr_in& name) {
  return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name);
}

template <class Value>
void SetOption(const cppu::UniqueFd& socket, int level, int option, const Value& value,
               std::string_view failure) {
  Checked(::setsockopt(socket.get(), level, option, &value, sizeof value), failure);
}

/// Sets an option that the socket can do without.
void TryOption(const cppu::UniqueFd& socket, int level, int option, int value) {
  static_cast<void>(::setsockopt(socket.get(), level, option, &value, sizeof value));
}

cppu::UniqueFd OpenSocket() {
  auto socket = cppu::AboveStandardStreams(cppu::UniqueFd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
  Checked(socket.get(), "Could not create socket");
  // Other programs on this machine discover on the same ports.
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1, "Could not set SO_REUSEADDR");
  SetOption(socket, IPPROTO_IP, IP_PKTINFO, 1, "Could not set IP_PKTINFO");
  // Without this the socket would also hear the groups that other sockets have joined on other interfaces.
  TryOption(socket, IPPROTO_IP, IP_MULTICAST_ALL, 0);
  TryOption(socket, SOL_SOCKET, SO_RCVBUF, kReceiveBuffer);
  return socket;
}

/// With index 0 routing chooses the interface.
in_pktinfo PacketInfo(const IP4& address, const LocalAddress& local) {
  return {
      .ipi_ifindex = static_cast<int>(local.interfaceIndex), .ipi_spec_dst = ToInAddr(address), .ipi_addr{}};
}

/// Whether the datagram came in on the socket's interface. With equal subnets, or bound to 0.0.0.0, a socket
/// also receives those of other interfaces.
bool IsFromOwnInterface(const NetworkSocket& socket, msghdr& message) {
  const auto* const header = CMSG_FIRSTHDR(&message);
  if (socket.interface.ipi_ifindex == 0 || header == nullptr) return true;
  in_pktinfo arrival{};
  std::memcpy(&arrival, CMSG_DATA(header), sizeof arrival);
  return arrival.ipi_ifindex == socket.interface.ipi_ifindex;
}

}  // namespace

NetworkSocket OpenBroadcast(const IP4& address, const LocalAddress& local) {
  auto target = SocketAddress(local.broadcast, kBroadcastPort);
  auto socket = OpenSocket();
  SetOption(socket, SOL_SOCKET, SO_BROADCAST, 1, "Could not enable broadcast");
  int result = Bind(socket, target);
  // Refused: what the system lists may be a peer's address. Then the socket only listens.
  if (result < 0 && errno == EADDRNOTAVAIL) {
    target.sin_addr = {};
    result = Bind(socket, target);
  }
  Checked(result, "Could not bind to broadcast port " + std::to_string(kBroadcastPort));
  return {std::move(socket), PacketInfo(address, local), target};
}

NetworkSocket OpenMulticast(const IP4& address, const LocalAddress& local) {
  const auto target = SocketAddress(kMulticastGroup, kMulticastPort);
  const ip_mreqn membership{ToInAddr(kMulticastGroup), ToInAddr(address),
                            static_cast<int>(local.interfaceIndex)};
  auto socket = OpenSocket();
  // Simulated devices run on this machine, on loopback too.
  SetOption(socket, IPPROTO_IP, IP_MULTICAST_LOOP, 1, "Could not set IP_MULTICAST_LOOP");
  Checked(Bind(socket, target),
          "Could not bind to " + IP4ToString(kMulticastGroup) + ":" + std::to_string(kMulticastPort));
  SetOption(socket, IPPROTO_IP, IP_MULTICAST_IF, membership,
            "Could not set outgoing interface to " + IP4ToString(address));
  SetOption(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, membership, "Could not join multicast group");
  return {std::move(socket), PacketInfo(address, local), target};
}

IP4 TargetOf(const NetworkSocket& socket) { return std::bit_cast<IP4>(socket.target.sin_addr); }

int SendTo(const NetworkSocket& socket, const Bytes& data) {
  if (!CanSend(socket)) return 0;  // the system would send to this machine
  auto target = socket.target;
  iovec piece{const_cast<uint8_t*>(data.data()), data.size()};  // only read
  PacketInfoMessage control;
  msghdr message{.msg_name = &target,
                 .msg_namelen = sizeof target,
                 .msg_iov = &piece,
                 .msg_iovlen = 1,
                 .msg_control = control.bytes.data(),
                 .msg_controllen = control.bytes.size(),
                 .msg_flags = 0};
  // Routing might choose another interface and source, above all when the interface is gone.
  auto* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = IPPROTO_IP;
  header->cmsg_type = IP_PKTINFO;
  header->cmsg_len = CMSG_LEN(sizeof socket.interface);
  std::memcpy(CMSG_DATA(header), &socket.interface, sizeof socket.interface);
  const auto sent = cppu::Uninterrupted(
      [&] { return ::sendmsg(socket.descriptor.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT); });
  return sent < 0 ? errno : 0;  // a datagram is sent whole or not at all
}

Arrival ReceiveFrom(const NetworkSocket& socket, IP4& sender, Bytes& data) {
  std::array<uint8_t, kLargestDatagram> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): received
  sockaddr_in source{};
  iovec piece{buffer.data(), buffer.size()};
  PacketInfoMessage control;
  msghdr message{.msg_name = &source,
                 .msg_namelen = sizeof source,
                 .msg_iov = &piece,
                 .msg_iovlen = 1,
                 .msg_control = control.bytes.data(),
                 .msg_controllen = control.bytes.size(),
                 .msg_flags = 0};
  const auto got =
      cppu::Uninterrupted([&] { return ::recvmsg(socket.descriptor.get(), &message, MSG_DONTWAIT); });
  if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return Arrival::Nothing;
  if (got < 0) ThrowSystemFailure("Could not receive datagram");
  if (!IsFromOwnInterface(socket, message)) return Arrival::Ignored;
  data.assign(buffer.begin(), buffer.begin() + got);
  sender = std::bit_cast<IP4>(source.sin_addr);
  return Arrival::Datagram;
}

}  // namespace quorvind
