#include "io/tcp_connect.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>

#include "options/result.h"
#include "util/system_call.h"

namespace qvio {
namespace {

struct FreeAddresses {
  void operator()(addrinfo* addresses) const { ::freeaddrinfo(addresses); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

Addresses Resolve(const std::string& host, uint16_t port) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo* found = nullptr;
  const int error = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  Require(error != EAI_NONAME && error != EAI_AGAIN, QV_IO_ERROR_DEVICE_NOT_FOUND);
  Require(error == 0, QV_IO_ERROR_DRIVER_FAILURE);
  return Addresses(found);
}

bool IsTcpOverIp4(const addrinfo& address) {
  return address.ai_family == AF_INET && address.ai_socktype == SOCK_STREAM &&
         address.ai_protocol == IPPROTO_TCP;
}

bool Connects(int fd, const addrinfo& address, std::chrono::milliseconds timeout) {
  if (::connect(fd, address.ai_addr, address.ai_addrlen) == 0) return true;
  if (errno != EINPROGRESS && errno != EINTR) return false;  // an interrupted connect goes on as well
  std::array<pollfd, 1> entry{{{fd, POLLOUT, 0}}};
  return cppu::PollUntil(entry, std::chrono::steady_clock::now() + timeout) > 0;
}

/// A connect to a local port that nobody listens on can meet itself, when the system chooses that very port
/// for the near end.
bool IsConnectedToItself(int fd) {
  sockaddr_in near{};
  sockaddr_in far{};
  socklen_t nearSize = sizeof near;
  socklen_t farSize = sizeof far;
  return ::getsockname(fd, reinterpret_cast<sockaddr*>(&near), &nearSize) == 0 &&
         ::getpeername(fd, reinterpret_cast<sockaddr*>(&far), &farSize) == 0 &&
         near.sin_port == far.sin_port && near.sin_addr.s_addr == far.sin_addr.s_addr;
}

}  // namespace

cppu::UniqueFd ConnectTcp(const std::string& host, uint16_t port, std::chrono::milliseconds timeout) {
  const auto addresses = Resolve(host, port);
  for (const auto* address = addresses.get(); address != nullptr; address = address->ai_next) {
    if (!IsTcpOverIp4(*address)) continue;
    auto fd = cppu::AboveStandardStreams(
        cppu::UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP)));
    if (!fd) break;
    if (Connects(fd.get(), *address, timeout) && !IsConnectedToItself(fd.get())) return fd;
  }
  throw Failure(QV_IO_ERROR_DEVICE_NOT_FOUND);
}

}  // namespace qvio
