#pragma once

#include <array>
#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace qvio {

/// The keys of a record to write. "all" means every key of the record.
using Selection = std::set<std::string, std::less<>>;

inline constexpr std::string_view kAllKeys = "all";

/// The keys of property records, by what the record describes.
inline constexpr std::array<std::string_view, 10> kUsbDeviceKeys{
    "all",         "available", "device-sn", "iface-type", "locator",
    "protocol-id", "usb-desc",  "usb-id",    "usb-pid",    "usb-vid"};
inline constexpr std::array<std::string_view, 11> kNetworkDeviceKeys{
    "all",        "available", "device-info",  "device-sn",    "device-type", "iface",
    "iface-type", "locator",   "network-host", "network-port", "protocol-id"};
inline constexpr std::array<std::string_view, 3> kSerialDeviceKeys{"all", "iface-type", "locator"};
inline constexpr std::array<std::string_view, 5> kNetworkInterfaceKeys{"all", "iface-type", "name",
                                                                       "network-host", "network-subnet-mask"};
inline constexpr std::array<std::string_view, 4> kSerialPortKeys{"all", "iface-type", "name", "serial-port"};

}  // namespace qvio
