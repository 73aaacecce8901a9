#include "nd/device_record.h"

#include <algorithm>
#include <string>
#include <vector>

#include "util/lookup.h"

namespace quorvind {
namespace {

std::string LocatorOf(const DiscoverInfo& info, qvio::NetworkLocatorFormat format) {
  if (format == qvio::NetworkLocatorFormat::SerialNumber) return "network:sn:" + info.SerialNumber;
  return "network:" + IP4ToString(info.Address) + ":" + std::to_string(info.Port);
}

/// A line of its own in the serial number could pass for the locator of another device.
bool HasControlCharacter(const std::string& text) {
  return std::ranges::any_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

}  // namespace

qvio::PropertyRecord MakeDeviceRecord(const DiscoverInfo& info, qvio::NetworkLocatorFormat format,
                                      const IP4& local) {
  qvio::PropertyRecord record{{"iface-type", "network"},
                              {"network-host", IP4ToString(info.Address)},
                              {"network-port", std::to_string(info.Port)},
                              {"device-type", std::to_string(info.DeviceType)},
                              {"device-sn", info.SerialNumber},
                              {"available", info.Available ? "1" : "0"},
                              {"protocol-id", std::to_string(info.ProtocolId)},
                              {"iface", "network:" + IP4ToString(local)},
                              {"device-info", info.Info}};
  // The locator is left out rather than escaped, because it must be usable as printed.
  if (!HasControlCharacter(info.SerialNumber)) record.emplace("locator", LocatorOf(info, format));
  return record;
}

bool IsAskedFor(const DiscoverInfo& info, const qvio::DeviceListOptions& options) {
  return cppu::Allows(options.findDeviceSns, info.SerialNumber) &&
         cppu::Allows(options.findDeviceTypes, info.DeviceType) &&
         cppu::Allows(options.findProtocolIds, uint32_t{info.ProtocolId}) &&
         (info.Available || !options.findOnlyAvailable);
}

}  // namespace quorvind
