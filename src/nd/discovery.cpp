#include "nd/discovery.h"

#include <string_view>

#include "options/locator.h"
#include "options/result.h"

namespace qvio {

// Discovery itself is not there yet: no device is known, no interface can be searched or watched, and every
// function answers as it does on a network without devices.

std::optional<Endpoint> FindDevice(const std::string& /*serialNumber*/,
                                   std::span<const std::string> /*ifaces*/,
                                   std::chrono::milliseconds /*searchTime*/) {
  return {};
}

void AppendNetworkDevices(const DeviceListOptions& options, RecordList& /*records*/) {
  ReadNetworkLocatorFormat(options.locatorFormatNetwork);
}

void AppendNetworkInterfaces(RecordList& /*records*/) {}

void AdoptGlobalOptions(const GlobalOptions& options) {
  if (!options.locatorFormatNetwork.empty()) ReadNetworkLocatorFormat(options.locatorFormatNetwork);
  for (const std::string_view iface : options.discoveryIfaces) {
    if (iface == "network:none") return;
    // A watch that cannot be kept is refused, not promised.
    Require(!iface.starts_with("network:"), QV_IO_ERROR_INVALID_ARGUMENT);
  }
}

}  // namespace qvio
