#include "nd/local_address.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "nd/log.h"
#include "util/unique_fd.h"

namespace quorvind {
namespace {

/// Asked of the system, by a bind that it refuses for foreign addresses: a list of the interfaces does not
/// name every address, such as 127.0.0.2.
bool IsLocal(const IP4& address) {
  const cppu::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket) return true;  // whoever uses the address will say what is wrong
  sockaddr_in name{};
  name.sin_family = AF_INET;
  std::memcpy(&name.sin_addr, address.data(), address.size());
  return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 ||
         errno != EADDRNOTAVAIL;
}

}  // namespace

std::vector<IP4> LocalOnes(const IP4Set& addresses) {
  std::vector<IP4> local;
  for (const auto& address : addresses) {
    if (IsLocal(address)) {
      local.push_back(address);
    } else {
      LogWarning("Interface not usable", "no local address: " + IP4ToString(address));
    }
  }
  return local;
}

}  // namespace quorvind
