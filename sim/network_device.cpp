#include "sim/network_device.h"

#include <arpa/inet.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

#include "sim/checked.h"

namespace qvsim {
namespace {

sockaddr_in SocketAddress(const std::string& address, uint16_t port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  if (::inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1) {
    throw std::invalid_argument("not a dotted IPv4 address: " + address);
  }
  return name;
}

cppu::UniqueFd Listen(const sockaddr_in& name) {
  cppu::UniqueFd fd(Checked(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket"));
  const int on = 1;
  Checked(::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), "setsockopt");
  Checked(::bind(fd.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), "cannot listen");
  Checked(::listen(fd.get(), SOMAXCONN), "listen");
  return fd;
}

/// The connection that could not be accepted is reported again at once, which must not cost a core. With any
/// other error the peer has given up.
void RestIfOutOfDescriptors(int error) {
  if (error == EMFILE || error == ENFILE) std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

uint16_t LocalPort(int fd) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  Checked(::getsockname(fd, reinterpret_cast<sockaddr*>(&name), &size), "getsockname");
  return ntohs(name.sin_port);
}

}  // namespace

NetworkDevice::NetworkDevice(EventLoop& loop, const std::string& address, uint16_t port,
                             MakeResponder makeResponder)
    : loop_(loop),
      makeResponder_(std::move(makeResponder)),
      listener_(Listen(SocketAddress(address, port))),
      port_(LocalPort(listener_.get())) {
  loop_.run([this] { loop_.watch(listener_.get(), EPOLLIN, [this](uint32_t) { accept(); }); });
}

NetworkDevice::~NetworkDevice() {
  loop_.run([this] {
    loop_.forget(listener_.get());
    streams_.clear();
  });
}

void NetworkDevice::accept() {
  cppu::UniqueFd fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!fd) return RestIfOutOfDescriptors(errno);
  const int key = fd.get();
  streams_[key] = std::make_unique<ByteStream>(loop_, std::move(fd), makeResponder_(),
                                               [this, key] { streams_.erase(key); });
  streams_[key]->setReading(reading_);
}

template <class Action>
void NetworkDevice::forEach(Action action) {
  loop_.run([&] {
    for (auto& [fd, stream] : streams_) action(*stream);
  });
}

std::size_t NetworkDevice::connections() {
  std::size_t count = 0;
  forEach([&](ByteStream&) { ++count; });
  return count;
}

bool NetworkDevice::hasUnread() {
  bool unread = false;
  forEach([&](ByteStream& stream) { unread = unread || stream.hasUnread(); });
  return unread;
}

void NetworkDevice::setReading(Reading reading) {
  loop_.run([&] { reading_ = reading; });
  forEach([=](ByteStream& stream) { stream.setReading(reading); });
}

void NetworkDevice::sendForever() {
  forEach([](ByteStream& stream) { stream.sendForever(); });
}

void NetworkDevice::closeAll() {
  loop_.run([this] { streams_.clear(); });
}

void NetworkDevice::resetAll() {
  loop_.run([this] {
    const linger atOnce{1, 0};
    for (auto& [fd, stream] : streams_) ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    streams_.clear();
  });
}

void NetworkDevice::halfCloseAll() {
  forEach([](ByteStream& stream) { stream.shutDownSending(); });
}

}  // namespace qvsim
