#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "nd/network_socket.h"
#include "util/ip4.h"
#include "util/unique_fd.h"

namespace quorvind {

/// The sockets of one local address: broadcast and multicast.
using SocketPair = std::array<NetworkSocket, 2>;
using SocketPairs = std::vector<std::shared_ptr<const SocketPair>>;

/// The sockets of all addresses of a connection. Replaced as a whole and never changed, so that no descriptor
/// is closed under a call that uses it.
struct SocketSet {
  /// Throws NetworkException.
  explicit SocketSet(SocketPairs opened);

  /// Null while the interface is gone.
  [[nodiscard]] const NetworkSocket* network(uint32_t index) const {
    const auto& pair = pairs[index / 2];
    return pair ? &(*pair)[index % 2] : nullptr;
  }

  SocketPairs pairs;        ///< one for each address; null: its interface is gone
  cppu::UniqueFd outdated;  ///< readable once the set is replaced or the connection closed; never read back
};

/// Keeps the sockets of some local addresses usable: opens them again when an interface was replaced, such as
/// an adapter that was unplugged or a VPN. Any thread.
class InterfaceSockets {
 public:
  /// Throws NetworkException.
  explicit InterfaceSockets(std::vector<IP4> addresses);

  [[nodiscard]] const std::vector<IP4>& addresses() const { return addresses_; }
  [[nodiscard]] std::shared_ptr<const SocketSet> current() const;

  /// Checks whether interfaces were replaced. Returns whether there is a newer set. The next call retries
  /// what failed; each change is logged once.
  bool refresh();

  /// The same, at most once in a few seconds: no socket reports that its interface is gone.
  bool refreshIfDue(std::chrono::steady_clock::time_point now);
  [[nodiscard]] std::chrono::steady_clock::time_point nextCheck() const { return nextCheck_; }

  /// Marks the current set as outdated. There will be no other.
  void close();

  /// For a forked child: closes its copies of the descriptors.
  void abandon() const noexcept;

 private:
  bool replace(const std::shared_ptr<const SocketSet>& former, const SocketPairs& pairs);

  const std::vector<IP4> addresses_;
  std::atomic<std::chrono::steady_clock::time_point> nextCheck_;
  mutable std::mutex mutex_;  ///< guards what follows; a leaf, never held in a socket call
  std::shared_ptr<const SocketSet> current_;
  bool closed_ = false;
};

}  // namespace quorvind
