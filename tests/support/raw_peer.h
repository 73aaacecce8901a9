#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "support/links.h"
#include "support/wait.h"
#include "util/unique_fd.h"

namespace qvtest {

/// The far end of one channel in the test's own hands: nothing is read or sent but by the test.
class RawPeer {
 public:
  explicit RawPeer(LinkKind kind) { kind == LinkKind::Tcp ? listen() : openTerminal(); }

  [[nodiscard]] const std::string& locator() const { return locator_; }
  [[nodiscard]] std::string options() const { return listener_ ? "" : "baudrate 115200"; }

  /// After the channel has been opened. Non-blocking.
  [[nodiscard]] int fd() {
    if (!fd_)
      fd_ = cppu::UniqueFd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    return fd_.get();
  }

  /// Sends all; when it returns, the other end's system has it.
  void send(std::string_view bytes, int flags = 0) {
    EXPECT_TRUE(Eventually([&] {
      const auto sent = ::send(fd(), bytes.data(), bytes.size(), flags | MSG_NOSIGNAL);
      if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
      return bytes.empty();
    }));
    EXPECT_TRUE(Eventually([&] { return queued() == 0; }));
  }

  void endSending() { ::shutdown(fd(), SHUT_WR); }
  void reset() {
    const linger atOnce{1, 0};
    ::setsockopt(fd(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close();
  }
  void close() { fd_.reset(); }

 private:
  void listen() {
    listener_ = cppu::UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof name;
    EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&name), size), 0);
    EXPECT_EQ(::listen(listener_.get(), 1), 0);
    EXPECT_EQ(::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&name), &size), 0);
    locator_ = "network:127.0.0.1:" + std::to_string(ntohs(name.sin_port));
  }

  void openTerminal() {
    fd_ = cppu::UniqueFd(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    EXPECT_TRUE(::grantpt(fd_.get()) == 0 && ::unlockpt(fd_.get()) == 0);
    char path[64] = "";
    EXPECT_EQ(::ptsname_r(fd_.get(), path, sizeof path), 0);
    locator_ = std::string("serial:") + path;
  }

  [[nodiscard]] int queued() {
    int bytes = 0;
    EXPECT_EQ(::ioctl(fd(), SIOCOUTQ, &bytes), 0);
    return bytes;
  }

  std::string locator_;
  cppu::UniqueFd listener_;  ///< TCP only
  cppu::UniqueFd fd_;
};

}  // namespace qvtest
