#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "util/bytes.h"
#include "util/ip4.h"

namespace quorvind {

using cppu::Bytes;

/// The datagram transport of discovery: a row of networks, each one way of reaching devices over one local
/// interface. Network ids count from 1; 0 means all networks. Any thread; several calls may run at once.
class Connection {
 public:
  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  virtual ~Connection() = default;

  /// Ends the connection for good and wakes a blocked receiver. With `wait` it returns when every running
  /// Send and Receive has left.
  virtual void Close(bool wait) = 0;

  /// Name for the log, as "Broadcast (192.168.1.20)"; for id 0 the names of all networks. Throws
  /// InvalidArgumentException for an unknown id.
  [[nodiscard]] virtual std::string NetworkName(uint32_t networkId) const = 0;

  /// Waits for a datagram. False when none came in time or the connection is closed.
  /// @param networkId  the network it came in on, never 0
  /// @param sender     source address
  /// @param data       becomes the datagram, at most its first 1024 bytes
  /// Throws NetworkException.
  virtual bool Receive(uint32_t& networkId, IP4& sender, Bytes& data, int64_t timeoutMs) = 0;

  /// Sends one datagram on one network, or on all for id 0, without waiting for room; does nothing on a
  /// closed connection, and on a broadcast network whose interface has no broadcast address. Throws
  /// InvalidArgumentException for an unknown id, NetworkException when the network, or for id 0 every
  /// network, refuses it.
  virtual void Send(uint32_t networkId, const Bytes& data) = 0;

  /// To be called in a forked child, where the connection is the parent's: closes the child's copies of the
  /// descriptors and takes no lock.
  virtual void Abandon() noexcept {}
};

/// Opens a broadcast and a multicast network for each local interface address, in the set's order: interface
/// i (from 0) has the ids 2i+1 and 2i+2. A network delivers only what arrived on its interface. An interface
/// that is removed and comes back is noticed by the next Send with id 0, and within a few seconds by Receive.
/// Throws NetworkException, also for an address that is not local.
std::unique_ptr<Connection> CreateConnection(const IP4Set& interfaces);

/// A local interface that discovery can use.
struct Interface {
  std::string name;
  IP4 address;
  IP4 subnetMask;
};

/// The IPv4 addresses of all interfaces that are up, not loopback, and able to broadcast or multicast. Throws
/// NetworkException.
std::vector<Interface> ListInterfaces();

}  // namespace quorvind
