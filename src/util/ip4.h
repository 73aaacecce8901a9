#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace quorvind {

/// An IPv4 address: its four bytes in network order, 192.168.1.10 is C0 A8 01 0A.
using IP4 = std::array<unsigned char, 4>;

/// Dotted decimal text, without leading zeros.
std::string IP4ToString(const IP4& address);

/// Reads dotted decimal text; none for anything else.
std::optional<IP4> IP4FromString(std::string_view text);

struct IP4AddressHash {
  std::size_t operator()(const IP4& address) const noexcept {
    const auto low = static_cast<std::size_t>(address[1] ^ address[2] ^ address[3]);
    return address[0] ^ (low << 1U);
  }
};

/// Initial bucket count of the tables of addresses and devices.
inline constexpr std::size_t kInitialBuckets = 10;

using IP4Set = std::unordered_set<IP4, IP4AddressHash>;

}  // namespace quorvind
