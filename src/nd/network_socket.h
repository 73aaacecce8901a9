#pragma once

#include <netinet/in.h>

#include "nd/local_addresses.h"
#include "util/bytes.h"
#include "util/ip4.h"
#include "util/unique_fd.h"

namespace quorvind {

using cppu::Bytes;

/// The protocol's addresses; devices use the same.
inline constexpr uint16_t kBroadcastPort = 65111;
inline constexpr uint16_t kMulticastPort = 65110;
inline constexpr IP4 kMulticastGroup{239, 1, 1, 21};

/// Bytes that a socket asks for: a thousand devices may answer at once.
inline constexpr int kReceiveBuffer = 4 * 1024 * 1024;

/// One socket of discovery: a way of reaching the devices of one interface. Does not change; any thread.
struct NetworkSocket {
  cppu::UniqueFd descriptor;
  in_pktinfo interface;  ///< its index (0: not known) and our address on it
  sockaddr_in target;    ///< where datagrams go, and what the socket is bound to; 0.0.0.0: it only listens
};

/// Both throw NetworkException.
NetworkSocket OpenBroadcast(const IP4& address, const LocalAddress& local);
NetworkSocket OpenMulticast(const IP4& address, const LocalAddress& local);

/// Where datagrams go; 0.0.0.0: nowhere.
IP4 TargetOf(const NetworkSocket& socket);
inline bool CanSend(const NetworkSocket& socket) { return TargetOf(socket) != IP4{}; }

/// Sends one datagram, without waiting for room. A socket that only listens sends nothing.
/// Returns errno of the failure, or 0.
int SendTo(const NetworkSocket& socket, const Bytes& data);

enum class Arrival {
  Nothing,
  Ignored,  ///< a datagram that came in on another interface
  Datagram
};

/// Takes what has arrived, without waiting. The sender and at most 1024 bytes of the datagram are stored only
/// for Arrival::Datagram. Throws NetworkException.
Arrival ReceiveFrom(const NetworkSocket& socket, IP4& sender, Bytes& data);

}  // namespace quorvind
