#include "device/listing.h"

#include <libserialport.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <memory>

#include "device/failure_text.h"
#include "device/identity.h"
#include "terminal/failure.h"

namespace qvio_tool {
namespace {

using quorvio::Device;

ListedDevice ListedNetworkDevice(const Device& device) {
  return {device.locator,
          device.available,
          {device.locator, "network", device.serialNumber, device.available ? "yes" : "no",
           std::to_string(device.type), device.host + ':' + std::to_string(device.port), "", device.info},
          ToJson(device)};
}

/// "0403:6001".
std::string UsbIds(unsigned vid, unsigned pid) {
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "%04x:%04x", vid, pid);
  return text.data();
}

ListedDevice ListedUsbDevice(const Device& device) {
  return {device.locator,
          device.available,
          {device.locator, "usb", device.serialNumber, device.available ? "yes" : "no", "", "",
           UsbIds(device.vendorId, device.productId), device.info},
          {{"iface-type", "usb"},
           {"locator", device.locator},
           {"device-sn", device.serialNumber},
           {"usb-vid", device.vendorId},
           {"usb-pid", device.productId},
           {"available", device.available},
           {"usb-desc", device.info}}};
}

std::string TextOf(const char* text) { return text != nullptr ? text : ""; }

ListedDevice ListedSerialPort(const sp_port* port) {
  const auto locator = std::string(kSerialWord) + TextOf(sp_get_port_name(port));
  const auto serialNumber = TextOf(sp_get_port_usb_serial(port));
  const auto description = TextOf(sp_get_port_description(port));
  int vid = 0;
  int pid = 0;
  const bool isUsb = sp_get_port_usb_vid_pid(port, &vid, &pid) == SP_OK;
  const auto ids = isUsb ? UsbIds(static_cast<unsigned>(vid), static_cast<unsigned>(pid)) : "";
  nlohmann::ordered_json json{{"iface-type", "serial"}, {"locator", locator}, {"description", description}};
  if (!serialNumber.empty()) json["device-sn"] = serialNumber;
  if (isUsb) {
    json["usb-vid"] = vid;
    json["usb-pid"] = pid;
  }
  return {locator, true, {locator, "serial", serialNumber, "", "", "", ids, description}, json};
}

}  // namespace

std::vector<Device> AskRepeatedly(const DeviceSearch& search, std::chrono::milliseconds each,
                                  uint32_t tries) {
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

void DeviceList::addNetworkDevices(const DiscoveryOptions& options, std::chrono::milliseconds time,
                                   uint32_t tries) try {
  const DeviceSearch search(options.addresses());
  const auto each = std::max(time / tries, std::chrono::milliseconds(1));
  for (const auto& device : AskRepeatedly(search, each, tries))
    devices.push_back(ListedNetworkDevice(device));
} catch (const CommandFailure& failure) {
  if (!options.ifaces.empty()) throw;
  notes.push_back(std::string("network: ") + failure.what());
}

void DeviceList::addUsbDevices() try {
  const auto chips = quorvio::listDevices(
      quorvio::InterfaceKind::usb, quorvio::Options().add("find-only-available", false),
      {"locator", "device-sn", "available", "usb-vid", "usb-pid", "usb-desc"});  // none opens a chip
  for (const auto& chip : chips) devices.push_back(ListedUsbDevice(chip));
} catch (const quorvio::Error&) {
  notes.push_back("usb: " + FailureText());
}

void DeviceList::addSerialPorts() {
  sp_port** ports = nullptr;
  if (sp_list_ports(&ports) != SP_OK) {
    notes.emplace_back("serial: the system does not list its ports");
    return;
  }
  const std::unique_ptr<sp_port*, void (*)(sp_port**)> owner(ports, sp_free_port_list);
  for (; *ports != nullptr; ++ports) devices.push_back(ListedSerialPort(*ports));
}

nlohmann::ordered_json ToJson(const Device& networkDevice) {
  const auto& device = networkDevice;
  return {{"iface-type", "network"},       {"locator", device.locator},
          {"device-type", device.type},    {"device-sn", device.serialNumber},
          {"network-host", device.host},   {"network-port", device.port},
          {"available", device.available}, {"protocol-id", device.protocolId},
          {"iface", device.interface},     {"device-info", device.info}};
}

}  // namespace qvio_tool
