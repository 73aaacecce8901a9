#pragma once

#include <tuple>

#include "quorvio/quorvio.hpp"

namespace qvio_tool {

/// Distinguishes network devices; the other fields are their state. Valid as long as the device.
inline auto IdentityOf(const quorvio::Device& device) {
  return std::tie(device.serialNumber, device.host, device.port, device.type, device.protocolId,
                  device.interface);
}

/// Orders devices by their identity.
struct DeviceOrder {
  bool operator()(const quorvio::Device& a, const quorvio::Device& b) const {
    return IdentityOf(a) < IdentityOf(b);
  }
};

}  // namespace qvio_tool
