#include "io/tcp_connect.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>

#include "util/failure.h"
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
  if (error == 0) return Addresses(found);
  // EAI_AGAIN too: without a network, every name is unknown for now.
  const bool unknown = error == EAI_NONAME || error == EAI_AGAIN;
  Fail(unknown ? QV_IO_ERROR_DEVICE_NOT_FOUND : QV_IO_ERROR_DRIVER_FAILURE, "cannot resolve %: %",
       {host, ::gai_strerror(error)}, error == EAI_SYSTEM ? errno : 0);
}

bool IsTcpOverIp4(const addrinfo& address) {
  return address.ai_family == AF_INET && address.ai_socktype == SOCK_STREAM &&
         address.ai_protocol == IPPROTO_TCP;
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

constexpr int kNoAnswer = ETIMEDOUT;

/// 0 or the errno of the failure.
int Connect(int fd, const addrinfo& address, std::chrono::milliseconds timeout) {
  if (::connect(fd, address.ai_addr, address.ai_addrlen) != 0) {
    if (errno != EINPROGRESS && errno != EINTR) return errno;  // an interrupted connect goes on as well
    std::array<pollfd, 1> entry{{{fd, POLLOUT, 0}}};
    const int ready = cppu::PollUntil(entry, std::chrono::steady_clock::now() + timeout);
    if (ready <= 0) return ready < 0 ? errno : kNoAnswer;
  }
  return IsConnectedToItself(fd) ? ECONNREFUSED : 0;
}

}  // namespace

cppu::UniqueFd ConnectTcp(const std::string& host, uint16_t port, std::chrono::milliseconds timeout) {
  const auto addresses = Resolve(host, port);
  int error = EAFNOSUPPORT;
  for (const auto* address = addresses.get(); address != nullptr; address = address->ai_next) {
    if (!IsTcpOverIp4(*address)) continue;
    auto fd = cppu::AboveStandardStreams(
        cppu::UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP)));
    error = fd ? Connect(fd.get(), *address, timeout) : errno;
    if (error == 0) return fd;
    // Out of descriptors: the next address would fail in the same way.
    if (!fd) break;
  }
  const auto milliseconds = static_cast<uint64_t>(timeout.count());
  Require(error != kNoAnswer, QV_IO_ERROR_DEVICE_NOT_FOUND, "no answer from %:% within % ms",
          {host, port, milliseconds});
  Fail(QV_IO_ERROR_DEVICE_NOT_FOUND, "cannot connect to %:%", {host, port}, error);
}

}  // namespace qvio
