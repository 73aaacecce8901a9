#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <tuple>

#include "util/ip4.h"

namespace quorvind {

/// What one discovery answer says about a device.
struct DiscoverInfo {
  uint32_t DeviceType = 0;
  std::string SerialNumber;
  IP4 Address{};  ///< where the answer came from
  uint8_t ProtocolId = 0;
  uint16_t Port = 0;  ///< TCP port of the data connection
  bool Available = false;
  std::string Info = {};  ///< free description
  std::chrono::steady_clock::time_point LastSeen{};
  bool IsReply = false;  ///< a Discover Reply; false: a Discover Inform
};

/// Two records denote the same device when these are equal; the other fields are its state.
struct SameDevice {
  bool operator()(const DiscoverInfo& a, const DiscoverInfo& b) const {
    const auto identity = [](const DiscoverInfo& info) {
      return std::tie(info.Port, info.Address, info.DeviceType, info.ProtocolId, info.SerialNumber);
    };
    return identity(a) == identity(b);
  }
};

/// Hash of what SameDevice compares.
struct DeviceHash {
  std::size_t operator()(const DiscoverInfo& info) const noexcept {
    std::size_t hash = 0;
    combine(hash, info.DeviceType);
    combine(hash, std::hash<std::string>()(info.SerialNumber));
    combine(hash, IP4AddressHash()(info.Address));
    combine(hash, info.ProtocolId);
    combine(hash, info.Port);
    return hash;
  }

 private:
  static void combine(std::size_t& hash, std::size_t value) noexcept {
    hash ^= value + 0x9e3779b9 + (hash << 6U) + (hash >> 2U);
  }
};

}  // namespace quorvind
