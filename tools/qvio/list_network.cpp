#include <algorithm>
#include <map>

#include "device_search.h"
#include "json_text.h"
#include "listing.h"
#include "result_text.h"

namespace qvio_tool {
namespace {

/// Every device that has answered once, in the order of first appearance, as it was last.
std::vector<Device> Search(const DeviceSearch& search, std::chrono::milliseconds each, uint32_t tries) {
  std::vector<Device> devices;
  std::map<Device, std::size_t, DeviceOrder> positions;
  for (uint32_t asked = 0; asked < tries; ++asked) {
    for (auto& device : search.ask(each)) {
      const auto [known, isNew] = positions.try_emplace(device, devices.size());
      if (isNew) devices.emplace_back();
      devices[known->second] = std::move(device);
    }
  }
  return devices;
}

ListedDevice Listed(const Device& device) {
  return {device.locator,
          device.available,
          {device.locator, std::to_string(device.type), device.serialNumber, device.host,
           std::to_string(device.port), device.available ? "yes" : "no", device.info},
          ToJson(device)};
}

}  // namespace

Listing ListNetworkDevices(const DiscoveryOptions& options, std::chrono::milliseconds time, uint32_t tries) {
  Listing listing;
  try {
    const DeviceSearch search(options.addresses());
    const auto each = std::max(time / tries, std::chrono::milliseconds(1));
    std::ranges::transform(Search(search, each, tries), std::back_inserter(listing.devices), Listed);
  } catch (const CommandFailure& failure) {
    if (!options.ifaces.empty()) throw;
    listing.note = std::string("network: ") + failure.what();
  }
  return listing;
}

}  // namespace qvio_tool
