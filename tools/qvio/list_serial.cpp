#include <libserialport.h>

#include <memory>

#include "listing.h"
#include "option_text.h"

namespace qvio_tool {
namespace {

struct FreePorts {
  void operator()(sp_port** ports) const { sp_free_port_list(ports); }
};

std::string TextOf(const char* text) { return text != nullptr ? text : ""; }

ListedDevice Listed(const sp_port* port) {
  const auto locator = std::string(kSerialWord) + TextOf(sp_get_port_name(port));
  const auto serialNumber = TextOf(sp_get_port_usb_serial(port));
  const auto description = TextOf(sp_get_port_description(port));
  int vid = 0;
  int pid = 0;
  const bool isUsb = sp_get_port_usb_vid_pid(port, &vid, &pid) == SP_OK;
  const auto ids = isUsb ? UsbIds(static_cast<uint32_t>(vid), static_cast<uint32_t>(pid)) : "";
  nlohmann::ordered_json json{{"iface-type", "serial"}, {"locator", locator}, {"description", description}};
  if (!serialNumber.empty()) json["device-sn"] = serialNumber;
  if (isUsb) {
    json["usb-vid"] = vid;
    json["usb-pid"] = pid;
  }
  return {locator, true, {locator, "serial", serialNumber, ids, "", "", description}, json};
}

}  // namespace

Listing ListSerialPorts() {
  Listing listing;
  sp_port** ports = nullptr;
  if (sp_list_ports(&ports) != SP_OK) {
    listing.note = "serial: the system does not list its ports";
    return listing;
  }
  const std::unique_ptr<sp_port*, FreePorts> owner(ports);
  for (; *ports != nullptr; ++ports) listing.devices.push_back(Listed(*ports));
  return listing;
}

}  // namespace qvio_tool
