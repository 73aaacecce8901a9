#include "line.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <termios.h>

#include <array>
#include <utility>

namespace qvbench {
namespace {

constexpr int kBacklog = 64;  // as many channels as there are handles

sockaddr_in Loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

template <class Call>
auto WithLoopback(uint16_t port, Call call) {
  auto address = Loopback(port);
  return call(reinterpret_cast<sockaddr*>(&address), socklen_t{sizeof address});
}

Descriptor Socket() { return {::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"}; }

Descriptor ListeningSocket() {
  auto fd = Socket();
  const int bound =
      WithLoopback(0, [&](auto* address, auto size) { return ::bind(fd.get(), address, size); });
  Require(bound == 0 && ::listen(fd.get(), kBacklog) == 0, "listen");
  return fd;
}

Descriptor FarTerminal() {
  Descriptor fd(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
  Require(::grantpt(fd.get()) == 0 && ::unlockpt(fd.get()) == 0, "unlockpt");
  return fd;
}

uint16_t PortOf(int fd) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  Require(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
  return ntohs(address.sin_port);
}

std::string PathOf(int fd) {
  std::array<char, 64> path{};
  Require(::ptsname_r(fd, path.data(), path.size()) == 0, "ptsname");
  return path.data();
}

}  // namespace

std::string Address::locator() const {
  return path_.empty() ? "network:127.0.0.1:" + std::to_string(port_) : "serial:" + path_;
}

Descriptor Address::open() const { return path_.empty() ? openSocket() : openTerminal(); }

Descriptor Address::openTerminal() const {
  Descriptor fd(::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open terminal");
  termios settings{};
  ::cfmakeraw(&settings);
  ::cfsetspeed(&settings, B230400);
  settings.c_cflag |= CREAD | CLOCAL;
  settings.c_cc[VMIN] = 1;
  Require(::tcsetattr(fd.get(), TCSAFLUSH, &settings) == 0, "tcsetattr");
  return fd;
}

Descriptor Address::openSocket() const {
  auto fd = Socket();
  const int connected =
      WithLoopback(port_, [&](auto* address, auto size) { return ::connect(fd.get(), address, size); });
  Require(connected == 0, "connect");
  return fd;
}

Listener::Listener(Line line) : line_(line), fd_(line == Line::Tcp ? ListeningSocket() : FarTerminal()) {}

Address Listener::address() const {
  return line_ == Line::Tcp ? Address(PortOf(fd_.get())) : Address(PathOf(fd_.get()));
}

Descriptor Listener::accept() {
  if (line_ == Line::PseudoTerminal) return std::move(fd_);
  return {::accept4(fd_.get(), nullptr, nullptr, SOCK_CLOEXEC), "accept"};
}

}  // namespace qvbench
