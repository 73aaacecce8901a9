#pragma once

#include <sched.h>

#include <cstdlib>
#include <string>

namespace qvtest {

/// A network namespace of the test's own, for the calling thread and the threads it starts from then on.
/// Loopback is up. Where the system forbids that, the test has to skip, or to bear with what others send.
class PrivateNetwork {
 public:
  PrivateNetwork()
      : entered_((::unshare(CLONE_NEWNET) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) &&
                 ip("link set lo up")) {}

  [[nodiscard]] bool entered() const { return entered_; }

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
  bool entered_;
};

}  // namespace qvtest
