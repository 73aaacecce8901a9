#pragma once

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "util/unique_fd.h"

namespace qvtest {

/// A network namespace of the test's own, for the calling thread and the threads and processes it starts from
/// then on. Loopback is up. Make it before the first thread: an ordinary user needs a user namespace for it,
/// which only a process with one thread may enter. Where the system forbids that, the network stays the one
/// that all share: the test has to skip, or to tolerate what others send.
class PrivateNetwork {
 public:
  PrivateNetwork()
      : entered_((unshareNetwork() || (becomeRoot() && unshareNetwork())) && switchLoopbackOn()) {}

  [[nodiscard]] bool entered() const { return entered_; }

  /// Why a test that needs one is skipped.
  static constexpr const char* kForbidden = "this system forbids private network namespaces";

  /// Runs "ip ARGUMENTS" in it.
  [[nodiscard]] static bool ip(const std::string& arguments) { return run("ip " + arguments); }

  /// Runs any other command in it.
  [[nodiscard]] static bool run(const std::string& command) {
    // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe)
    return std::system((command + " 2>/dev/null").c_str()) == 0;
  }

  /// A pair of connected interfaces NAME and NAME-peer; the first gets the address.
  [[nodiscard]] static bool addPair(const std::string& name, const std::string& address) {
    return addPairWith(name, address + "/24 broadcast +");
  }

  /// The same with an address as "ip addr add" takes it.
  [[nodiscard]] static bool addPairWith(const std::string& name, const std::string& address) {
    return ip("link add " + name + " type veth peer name " + name + "-peer") &&
           ip("addr add " + address + " dev " + name) && ip("link set " + name + "-peer up") &&
           ip("link set " + name + " up");
  }

 private:
  static bool unshareNetwork() { return ::unshare(CLONE_NEWNET) == 0; }

  /// In a user namespace of its own the process may do with its network what it wants. It has to be root
  /// there, or programs that it runs, such as ip, would lose that right.
  static bool becomeRoot() {
    const auto map = [](auto id) { return "0 " + std::to_string(id) + " 1"; };
    const auto user = map(::geteuid());
    const auto group = map(::getegid());
    return ::unshare(CLONE_NEWUSER) == 0 && write("/proc/self/uid_map", user) &&
           write("/proc/self/setgroups", "deny") && write("/proc/self/gid_map", group);
  }

  static bool write(const char* path, const std::string& text) {
    const cppu::UniqueFd file(::open(path, O_WRONLY | O_CLOEXEC));
    return ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }

  static bool switchLoopbackOn() {
    const cppu::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::string("lo").copy(request.ifr_name, sizeof request.ifr_name);
    if (::ioctl(socket.get(), SIOCGIFFLAGS, &request) != 0) return false;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    return ::ioctl(socket.get(), SIOCSIFFLAGS, &request) == 0;
  }

  bool entered_;
};

}  // namespace qvtest
