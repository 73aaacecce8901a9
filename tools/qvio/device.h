#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace qvio_tool {

/// A network device as discovery describes it. Its texts come from the network: they may hold any bytes.
struct Device {
  std::string locator;
  uint32_t type = 0;
  std::string serialNumber;
  std::string host;  ///< dotted address
  uint32_t port = 0;
  bool available = false;
  uint32_t protocolId = 0;
  std::string iface;  ///< "network:ADDRESS" of the local interface that it was heard on
  std::string info;

  /// What tells it from other devices; the other fields are its state.
  [[nodiscard]] auto identity() const { return std::tie(serialNumber, host, port, type, protocolId, iface); }
};

/// Orders devices by their identity.
struct DeviceOrder {
  bool operator()(const Device& a, const Device& b) const { return a.identity() < b.identity(); }
};

/// Reads property records as the library writes them with include-all.
std::vector<Device> ReadDevices(std::string_view records);

/// The address alone.
std::string_view IfaceAddress(const Device& device);

}  // namespace qvio_tool
