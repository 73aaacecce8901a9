#include "doctor/multicast_probe.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <chrono>
#include <string_view>

#include "nd/errors.h"
#include "nd/network_socket.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

constexpr std::chrono::milliseconds kPatience{100};

template <class Value>
void SetOption(int socket, int option, const Value& value, std::string_view failure) {
  if (::setsockopt(socket, IPPROTO_IP, option, &value, sizeof value) != 0)
    quorvind::ThrowSystemFailure(failure);
}

/// A socket that hears the group on the interface only.
cppu::UniqueFd OpenOn(const quorvind::Interface& interface) {
  cppu::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) quorvind::ThrowSystemFailure("cannot create a socket");
  const int shared = 1;
  static_cast<void>(::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &shared, sizeof shared));
  const ip_mreqn membership{std::bit_cast<in_addr>(quorvind::kMulticastGroup),
                            std::bit_cast<in_addr>(interface.address),
                            static_cast<int>(::if_nametoindex(interface.name.c_str()))};
  SetOption(socket.get(), IP_MULTICAST_ALL, 0, "cannot restrict multicast to the interface");
  SetOption(socket.get(), IP_MULTICAST_LOOP, 1, "cannot switch the return of multicast on");
  SetOption(socket.get(), IP_MULTICAST_TTL, 0, "cannot keep multicast on this machine");
  SetOption(socket.get(), IP_MULTICAST_IF, membership, "cannot send multicast on the interface");
  SetOption(socket.get(), IP_ADD_MEMBERSHIP, membership, "cannot join the multicast group");
  return socket;
}

/// @param port  0: the system chooses
sockaddr_in BindToGroup(int socket, uint16_t port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr = std::bit_cast<in_addr>(quorvind::kMulticastGroup);
  socklen_t size = sizeof name;
  auto* const generic = reinterpret_cast<sockaddr*>(&name);
  if (::bind(socket, generic, size) != 0 || ::getsockname(socket, generic, &size) != 0)
    quorvind::ThrowSystemFailure("cannot bind to the multicast group");
  return name;
}

bool ComesBack(const quorvind::Interface& interface, uint16_t port) {
  const auto socket = OpenOn(interface);
  const auto name = BindToGroup(socket.get(), port);
  const auto text = "qvio doctor " + std::to_string(::getpid());
  if (::sendto(socket.get(), text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&name),
               sizeof name) < 0)
    quorvind::ThrowSystemFailure("multicast cannot be sent");
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  std::array<char, 64> buffer{};
  pollfd entry{socket.get(), POLLIN, 0};
  while (!cppu::HasPassed(deadline) && cppu::PollUntil({&entry, 1}, deadline) > 0) {
    const auto got = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
    if (got > 0 && std::string_view(buffer.data(), static_cast<std::size_t>(got)) == text) return true;
  }
  return false;
}

}  // namespace

std::string MulticastProblem(const quorvind::Interface& interface) try {
  // A firewall may let in only discovery's port; on any other the datagram disturbs nobody.
  if (ComesBack(interface, 0) || ComesBack(interface, quorvind::kMulticastPort)) return {};
  return "multicast that was sent did not come back";
} catch (const quorvind::NetworkException& failure) {
  return failure.what();
}

}  // namespace qvio_tool
