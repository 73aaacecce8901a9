#pragma once

#include <bit>
#include <cstdint>

#include "nd/connection.h"

namespace qvio_tool {

/// In network order, for bit operations.
inline uint32_t Bits(const quorvind::IP4& address) { return std::bit_cast<uint32_t>(address); }

inline bool IsInSubnet(const quorvind::IP4& address, const quorvind::IP4& network,
                       const quorvind::IP4& mask) {
  return ((Bits(address) ^ Bits(network)) & Bits(mask)) == 0;
}

inline quorvind::IP4 BroadcastOf(const quorvind::Interface& interface) {
  return std::bit_cast<quorvind::IP4>(Bits(interface.address) | ~Bits(interface.subnetMask));
}

}  // namespace qvio_tool
