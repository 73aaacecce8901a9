#include "json_text.h"

namespace qvio_tool {

nlohmann::ordered_json ToJson(const Device& device) {
  return {{"iface-type", "network"},       {"locator", device.locator},
          {"device-type", device.type},    {"device-sn", device.serialNumber},
          {"network-host", device.host},   {"network-port", device.port},
          {"available", device.available}, {"protocol-id", device.protocolId},
          {"iface", device.iface},         {"device-info", device.info}};
}

std::string JsonText(const nlohmann::ordered_json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace qvio_tool
