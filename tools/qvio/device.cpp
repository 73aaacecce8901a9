#include "device.h"

#include "options/record_list.h"
#include "util/number.h"

namespace qvio_tool {
namespace {

constexpr std::string_view kNetworkWord = "network:";

Device ReadDevice(const qvio::PropertyRecord& record) {
  const auto text = [&](std::string_view key) {
    const auto found = record.find(key);
    return found != record.end() ? found->second : std::string();
  };
  const auto number = [&](std::string_view key) { return cppu::ToUint32(text(key)); };
  return {.locator = text("locator"),
          .type = number("device-type"),
          .serialNumber = text("device-sn"),
          .host = text("network-host"),
          .port = number("network-port"),
          .available = text("available") == "1",
          .protocolId = number("protocol-id"),
          .iface = text("iface"),
          .info = text("device-info")};
}

}  // namespace

std::vector<Device> ReadDevices(std::string_view records) {
  std::vector<Device> devices;
  for (const auto& record : qvio::ReadRecordList(records)) devices.push_back(ReadDevice(record));
  return devices;
}

std::string_view IfaceAddress(const Device& device) {
  std::string_view address = device.iface;
  if (address.starts_with(kNetworkWord)) address.remove_prefix(kNetworkWord.size());
  return address;
}

}  // namespace qvio_tool
