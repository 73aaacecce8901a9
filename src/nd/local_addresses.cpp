#include "nd/local_addresses.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "nd/connection.h"
#include "nd/errors.h"
#include "nd/log.h"
#include "util/unique_fd.h"

namespace quorvind {
namespace {

struct FreeAddresses {
  void operator()(ifaddrs* addresses) const { ::freeifaddrs(addresses); }
};
using Addresses = std::unique_ptr<ifaddrs, FreeAddresses>;

/// Every call asks the system again: adapters come and go while an application runs.
Addresses ListAddresses(std::string_view failure) {
  ifaddrs* addresses = nullptr;
  if (::getifaddrs(&addresses) != 0) ThrowSystemFailure(failure);
  return Addresses(addresses);
}

/// Copied out, since the list does not promise the alignment of sockaddr_in.
IP4 AddressIn(const sockaddr* name) {
  if (name == nullptr || name->sa_family != AF_INET) return {};
  sockaddr_in ip4{};
  std::memcpy(&ip4, name, sizeof ip4);
  return std::bit_cast<IP4>(ip4.sin_addr);
}

bool IsIp4(const ifaddrs& entry) { return entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == AF_INET; }

bool Has(const ifaddrs& entry, unsigned flag) { return (entry.ifa_flags & flag) != 0; }

bool IsInSubnetOf(const IP4& address, const ifaddrs& entry) {
  const auto mask = std::bit_cast<uint32_t>(AddressIn(entry.ifa_netmask));
  return ((std::bit_cast<uint32_t>(address) ^ std::bit_cast<uint32_t>(AddressIn(entry.ifa_addr))) & mask) ==
         0;
}

/// 0: the entry does not have the address. Tunnels may borrow the address of a network card; the card is
/// preferred.
int Fitness(const ifaddrs& entry, const IP4& address) {
  if (!IsIp4(entry)) return 0;
  if (AddressIn(entry.ifa_addr) == address) return Has(entry, IFF_BROADCAST) ? 3 : 2;
  return Has(entry, IFF_LOOPBACK) && IsInSubnetOf(address, entry) ? 1 : 0;
}

const ifaddrs* FittestEntry(const ifaddrs* all, const IP4& address) {
  const ifaddrs* fittest = nullptr;
  int most = 0;
  for (const auto* entry = all; entry != nullptr; entry = entry->ifa_next) {
    const int fitness = Fitness(*entry, address);
    if (fitness <= most) continue;
    fittest = entry;
    most = fitness;
  }
  return fittest;
}

/// Computed from address and mask. None for prefixes above 30, which have no broadcast address.
IP4 DerivedBroadcast(const ifaddrs& entry) {
  const auto mask = AddressIn(entry.ifa_netmask);
  if ((mask[3] & 3U) != 0) return {};
  return std::bit_cast<IP4>(std::bit_cast<uint32_t>(AddressIn(entry.ifa_addr)) |
                            ~std::bit_cast<uint32_t>(mask));
}

/// For an address that was configured without one, the system reports the address itself or that of the peer,
/// which may be this machine too.
IP4 BroadcastOf(const ifaddrs& entry, const ifaddrs* all) {
  if (!Has(entry, IFF_BROADCAST)) return {};
  const auto reported = AddressIn(entry.ifa_broadaddr);
  if (reported == IP4{} || reported == AddressIn(entry.ifa_addr)) return DerivedBroadcast(entry);
  const auto* const owner = FittestEntry(all, reported);
  return owner == nullptr ? reported : IP4{};
}

/// Tries a bind, which the system refuses for foreign addresses. Fast enough for a long list, and correct for
/// addresses that are local by a route.
bool IsLocal(const IP4& address) {
  const cppu::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket) return true;  // whoever uses the address will report the failure
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr = std::bit_cast<in_addr>(address);
  return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 ||
         errno != EADDRNOTAVAIL;
}

}  // namespace

std::optional<LocalAddress> FindLocalAddress(const IP4& address) {
  const auto addresses = ListAddresses("Could not get interface addresses");
  const auto* const entry = FittestEntry(addresses.get(), address);
  if (entry == nullptr) return {};
  const bool isUp = Has(*entry, IFF_UP);
  return LocalAddress{.interfaceIndex = ::if_nametoindex(entry->ifa_name),
                      .broadcast = isUp ? BroadcastOf(*entry, addresses.get()) : IP4{},
                      .isUp = isUp};
}

IP4Set LocalOnes(std::span<const IP4> addresses) {
  IP4Set local(kInitialBuckets);
  for (const auto& address : addresses) {
    if (IsLocal(address)) {
      local.insert(address);
    } else {
      LogWarning("Interface not usable", "not a local address: " + IP4ToString(address));
    }
  }
  return local;
}

std::vector<Interface> ListInterfaces() {
  const auto addresses = ListAddresses("Could not get list of interfaces");
  std::vector<Interface> interfaces;
  for (const auto* entry = addresses.get(); entry != nullptr; entry = entry->ifa_next) {
    const bool usable =
        Has(*entry, IFF_UP) && !Has(*entry, IFF_LOOPBACK) && Has(*entry, IFF_BROADCAST | IFF_MULTICAST);
    if (IsIp4(*entry) && usable)
      interfaces.push_back({entry->ifa_name, AddressIn(entry->ifa_addr), AddressIn(entry->ifa_netmask)});
  }
  return interfaces;
}

}  // namespace quorvind
