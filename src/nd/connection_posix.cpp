#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>

#include "nd/connection.h"
#include "nd/errors.h"
#include "nd/log.h"
#include "util/system_call.h"
#include "util/unique_fd.h"

namespace quorvind {
namespace {

// The protocol's addresses; devices use the same.
constexpr uint16_t kBroadcastPort = 65111;
constexpr uint16_t kMulticastPort = 65110;
constexpr IP4 kMulticastGroup{239, 1, 1, 21};

constexpr std::size_t kLargestDatagram = 1024;
constexpr int kReceiveBuffer = 4 * 1024 * 1024;  // a thousand devices may answer at once

enum class NetworkKind : uint32_t { Broadcast = 0, Multicast = 1 };

/// One socket: a way of reaching the devices of one interface.
struct Network {
  IP4 interface;
  NetworkKind kind;
  sockaddr_in target;  ///< where datagrams go, and what the socket is bound to
  cppu::UniqueFd socket;
};

[[noreturn]] void ThrowSystemFailure(std::string_view text) {
  const int error = errno;
  throw NetworkException(std::string(text) + ": " + std::generic_category().message(error));
}

int Checked(int result, std::string_view text) {
  if (result < 0) ThrowSystemFailure(text);
  return result;
}

in_addr ToInAddr(const IP4& address) {
  in_addr result{};
  std::memcpy(&result, address.data(), address.size());
  return result;
}

IP4 FromInAddr(const in_addr& address) {
  IP4 result{};
  std::memcpy(result.data(), &address, result.size());
  return result;
}

IP4 AddressIn(const sockaddr* name) {
  if (name == nullptr || name->sa_family != AF_INET) return {};
  sockaddr_in ip4{};
  std::memcpy(&ip4, name, sizeof ip4);
  return FromInAddr(ip4.sin_addr);
}

sockaddr_in SocketAddress(const IP4& address, uint16_t port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr = ToInAddr(address);
  return name;
}

const sockaddr* Generic(const sockaddr_in& name) { return reinterpret_cast<const sockaddr*>(&name); }

struct FreeAddresses {
  void operator()(ifaddrs* addresses) const { ::freeifaddrs(addresses); }
};
using Addresses = std::unique_ptr<ifaddrs, FreeAddresses>;

/// Null on failure, errno set.
Addresses LocalAddresses() {
  ifaddrs* addresses = nullptr;
  return Addresses(::getifaddrs(&addresses) == 0 ? addresses : nullptr);
}

bool IsIp4(const ifaddrs& entry) { return entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == AF_INET; }

/// 0.0.0.0 where the interface has none: discovery then goes on by multicast alone.
IP4 BroadcastAddressOf(const IP4& interface) {
  const auto addresses = LocalAddresses();
  if (!addresses) LogSystemWarning("Could not get interface addresses", errno);
  for (const auto* entry = addresses.get(); entry != nullptr; entry = entry->ifa_next) {
    if (IsIp4(*entry) && (entry->ifa_flags & IFF_BROADCAST) != 0 && AddressIn(entry->ifa_addr) == interface)
      return AddressIn(entry->ifa_broadaddr);
  }
  return {};
}

template <class Value>
void SetOption(const cppu::UniqueFd& socket, int level, int option, const Value& value,
               std::string_view failure) {
  Checked(::setsockopt(socket.get(), level, option, &value, sizeof value), failure);
}

cppu::UniqueFd OpenSocket() {
  cppu::UniqueFd socket(Checked(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "Could not create socket"));
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1, "Could not set SO_REUSEADDR");
  // A refusal leaves the system's size, which does for a few devices.
  static_cast<void>(
      ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer));
  return socket;
}

Network OpenBroadcast(const IP4& interface) {
  const auto target = SocketAddress(BroadcastAddressOf(interface), kBroadcastPort);
  auto socket = OpenSocket();
  SetOption(socket, SOL_SOCKET, SO_BROADCAST, 1, "Could not enable broadcast");
  Checked(::bind(socket.get(), Generic(target), sizeof target),
          "Could not bind to broadcast port " + std::to_string(kBroadcastPort));
  return {interface, NetworkKind::Broadcast, target, std::move(socket)};
}

Network OpenMulticast(const IP4& interface) {
  const auto target = SocketAddress(kMulticastGroup, kMulticastPort);
  auto socket = OpenSocket();
  SetOption(socket, IPPROTO_IP, IP_MULTICAST_LOOP, 1, "Could not set IP_MULTICAST_LOOP");
  // Without this the socket would also hear what other sockets have joined on other interfaces, and their
  // devices would be listed here too. A refusal is no error.
  const int no = 0;
  static_cast<void>(::setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_ALL, &no, sizeof no));
  Checked(::bind(socket.get(), Generic(target), sizeof target),
          "Could not bind to " + IP4ToString(kMulticastGroup) + ":" + std::to_string(kMulticastPort));
  SetOption(socket, IPPROTO_IP, IP_MULTICAST_IF, ToInAddr(interface),
            "Could not set outgoing interface to " + IP4ToString(interface));
  SetOption(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, ip_mreq{ToInAddr(kMulticastGroup), ToInAddr(interface)},
            "Could not join multicast group");
  return {interface, NetworkKind::Multicast, target, std::move(socket)};
}

class ConnectionPosix final : public Connection {
 public:
  explicit ConnectionPosix(const IP4Set& interfaces) : closeEvent_(::eventfd(0, EFD_CLOEXEC)) {
    const int closeEventError = errno;
    for (const auto& interface : interfaces) {
      networks_.push_back(OpenBroadcast(interface));
      networks_.push_back(OpenMulticast(interface));
    }
    errno = closeEventError;
    Checked(closeEvent_.get(), "Could not create close event");
    open_ = true;
  }

  void Close(bool wait) override {
    std::unique_lock lock(mutex_);
    open_ = false;
    lock.unlock();
    // Never read back: every later Receive sees it too.
    if (::eventfd_write(closeEvent_.get(), 1) != 0)
      LogSystemWarning("Could not signal connection to finish", errno);
    if (!wait) return;
    lock.lock();
    allLeft_.wait(lock, [this] { return activeCalls_ == 0; });
  }

  [[nodiscard]] std::string NetworkName(uint32_t networkId) const override {
    if (networkId > networks_.size()) throw InvalidArgumentException("Network id out of range");
    if (networkId != 0) return NameOf(networks_[networkId - 1]);
    std::string names;
    for (const auto& network : networks_) names += (names.empty() ? "" : ", ") + NameOf(network);
    return names;
  }

  bool Receive(uint32_t& networkId, IP4& sender, Bytes& data, int64_t timeoutMs) override {
    const ActiveCall call(*this);
    if (!call) return false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (const auto* network = waitForDatagram(deadline)) {
      if (!receiveFrom(*network, sender, data)) continue;
      networkId = static_cast<uint32_t>(network - networks_.data()) + 1;
      return true;
    }
    return false;
  }

  void Send(uint32_t networkId, const Bytes& data) override {
    const ActiveCall call(*this);
    if (!call) return;
    if (networkId > networks_.size()) throw InvalidArgumentException("Network ID out of range");
    if (networkId != 0) return SendTo(networks_[networkId - 1], data);
    for (const auto& network : networks_) SendTo(network, data);
  }

 private:
  /// A running Send or Receive, for which Close may wait; false on a closed connection.
  class ActiveCall {
   public:
    explicit ActiveCall(ConnectionPosix& connection) : connection_(connection) {
      const std::lock_guard lock(connection_.mutex_);
      entered_ = connection_.open_;
      if (entered_) ++connection_.activeCalls_;
    }
    ActiveCall(const ActiveCall&) = delete;
    ActiveCall& operator=(const ActiveCall&) = delete;
    ~ActiveCall() {
      if (!entered_) return;
      const std::lock_guard lock(connection_.mutex_);
      if (--connection_.activeCalls_ == 0) connection_.allLeft_.notify_all();
    }
    explicit operator bool() const { return entered_; }

   private:
    ConnectionPosix& connection_;
    bool entered_;
  };

  static std::string NameOf(const Network& network) {
    const auto* const kind = network.kind == NetworkKind::Broadcast ? "Broadcast (" : "Multicast (";
    return kind + IP4ToString(network.interface) + ")";
  }

  static void SendTo(const Network& network, const Bytes& data) {
    const auto sent = cppu::Uninterrupted([&] {
      return ::sendto(network.socket.get(), data.data(), data.size(), MSG_NOSIGNAL, Generic(network.target),
                      sizeof network.target);
    });
    if (sent != static_cast<ssize_t>(data.size())) ThrowSystemFailure("Could not send datagram");
  }

  /// The first network with a datagram; null at the deadline or when the connection is closed.
  const Network* waitForDatagram(std::chrono::steady_clock::time_point deadline) {
    std::vector<pollfd> entries{{closeEvent_.get(), POLLIN, 0}};
    for (const auto& network : networks_) entries.push_back({network.socket.get(), POLLIN, 0});
    const int ready = cppu::PollUntil(entries, deadline);
    if (ready < 0) ThrowSystemFailure("select() failed");
    if (ready == 0 || entries[0].revents != 0) return nullptr;
    for (std::size_t i = 0; i < networks_.size(); ++i) {
      if (entries[i + 1].revents != 0) return &networks_[i];
    }
    throw NetworkException("Unexpected event");
  }

  /// False when the datagram has vanished meanwhile: the system drops one with a wrong checksum when it is
  /// read.
  static bool receiveFrom(const Network& network, IP4& sender, Bytes& data) {
    std::array<uint8_t, kLargestDatagram> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): received
    sockaddr_in source{};
    socklen_t sourceSize = sizeof source;
    const auto got = cppu::Uninterrupted([&] {
      return ::recvfrom(network.socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT,
                        reinterpret_cast<sockaddr*>(&source), &sourceSize);
    });
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return false;
    if (got < 0) ThrowSystemFailure("Could not receive datagram");
    data.assign(buffer.begin(), buffer.begin() + got);
    sender = FromInAddr(source.sin_addr);
    return true;
  }

  cppu::UniqueFd closeEvent_;
  std::vector<Network> networks_;  ///< does not change after construction
  std::mutex mutex_;               ///< guards open_ and activeCalls_; a leaf, never held in a socket call
  std::condition_variable allLeft_;
  bool open_ = false;
  uint32_t activeCalls_ = 0;
};

}  // namespace

std::unique_ptr<Connection> CreateConnection(const IP4Set& interfaces) {
  return std::make_unique<ConnectionPosix>(interfaces);
}

std::vector<Interface> ListInterfaces() {
  const auto addresses = LocalAddresses();
  if (!addresses) ThrowSystemFailure("Could not get list of interfaces");
  std::vector<Interface> interfaces;
  for (const auto* entry = addresses.get(); entry != nullptr; entry = entry->ifa_next) {
    const auto flags = entry->ifa_flags;
    const bool usable = (flags & IFF_UP) != 0 && (flags & IFF_LOOPBACK) == 0 &&
                        (flags & (IFF_BROADCAST | IFF_MULTICAST)) != 0;
    if (IsIp4(*entry) && usable)
      interfaces.push_back({entry->ifa_name, AddressIn(entry->ifa_addr), AddressIn(entry->ifa_netmask)});
  }
  return interfaces;
}

}  // namespace quorvind
