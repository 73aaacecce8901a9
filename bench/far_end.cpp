#include "far_end.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <asio.hpp>
#include <csignal>

namespace qvbench {
namespace {

using asio::ip::tcp;
using Buffer = std::array<uint8_t, kLargePiece>;

cppu::UniqueFd OpenTerminal(const std::string& path) {
  auto fd = Opened(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open terminal");
  termios settings{};
  ::cfmakeraw(&settings);
  ::cfsetspeed(&settings, B230400);
  settings.c_cflag |= CREAD | CLOCAL;
  settings.c_cc[VMIN] = 1;
  Require(::tcsetattr(fd.get(), TCSAFLUSH, &settings) == 0, "tcsetattr");
  return fd;
}

/// A processor that the process may not use is left out: everything then runs where it may.
void RunOnProcessor(long number) {
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(static_cast<unsigned>(number % ::sysconf(_SC_NPROCESSORS_ONLN)), &only);
  ::sched_setaffinity(0, sizeof only, &only);
}

}  // namespace

std::string Address::locator() const {
  return path.empty() ? "network:127.0.0.1:" + std::to_string(port) : "serial:" + path;
}

cppu::UniqueFd Address::open() const {
  if (!path.empty()) return OpenTerminal(path);
  asio::io_context context;
  tcp::socket socket(context);
  socket.connect({asio::ip::address_v4::loopback(), port});
  return cppu::UniqueFd(socket.release());
}

Listener::Listener(Line line) {
  if (line == Line::Tcp) {
    asio::io_context context;
    tcp::acceptor acceptor(context, {asio::ip::address_v4::loopback(), 0});
    address_.port = acceptor.local_endpoint().port();
    fd_ = cppu::UniqueFd(acceptor.release());
    return;
  }
  fd_ = Opened(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
  std::array<char, 64> path{};
  Require(::grantpt(fd_.get()) == 0 && ::unlockpt(fd_.get()) == 0 &&
              ::ptsname_r(fd_.get(), path.data(), path.size()) == 0,
          "pseudo terminal");
  address_.path = path.data();
}

cppu::UniqueFd Listener::accept() {
  if (!address_.path.empty()) return std::move(fd_);
  return Opened(::accept4(fd_.get(), nullptr, nullptr, SOCK_CLOEXEC), "accept");
}

FarEnd::FarEnd(Line line, Script script) : listener_(line) {
  std::signal(SIGPIPE, SIG_IGN);  // a near end may close while the far end writes
  RunOnProcessor(0);
  thread_ = std::jthread([this, script] {
    RunOnProcessor(1);
    const auto fd = listener_.accept();
    script(fd.get());
  });
}

std::span<const uint8_t> ReadSome(int fd, std::span<uint8_t> buffer) {
  const auto got = ::read(fd, buffer.data(), buffer.size());
  return buffer.first(got > 0 ? static_cast<std::size_t>(got) : 0);
}

bool WriteAll(int fd, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const auto written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

void Echo(int fd) {
  Buffer buffer;
  while (true) {
    const auto bytes = ReadSome(fd, buffer);
    if (bytes.empty() || !WriteAll(fd, bytes)) return;
  }
}

void Flood(int fd) {
  const Buffer piece{};
  Buffer request;
  while (!ReadSome(fd, std::span(request).first(1)).empty()) {
    for (std::size_t sent = 0; sent < kBulk; sent += piece.size()) {
      if (!WriteAll(fd, piece)) return;
    }
  }
}

void Swallow(int fd) {
  Buffer buffer;
  std::size_t left = kBulk;
  while (true) {
    const auto bytes = ReadSome(fd, std::span(buffer).first(std::min(buffer.size(), left)));
    if (bytes.empty()) return;
    left -= bytes.size();
    if (left > 0) continue;
    if (!WriteAll(fd, bytes.first(1))) return;
    left = kBulk;
  }
}

}  // namespace qvbench
