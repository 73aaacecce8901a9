#include <array>
#include <cstdio>

#include "listed_text.h"
#include "listing.h"
#include "options/record_list.h"
#include "util/number.h"

namespace qvio_tool {
namespace {

/// No key for which a chip has to be opened.
constexpr const char* kOptions =
    "iface-type usb\nfind-only-available false\ninclude-locator\ninclude-device-sn\ninclude-available\n"
    "include-usb-vid\ninclude-usb-pid\ninclude-usb-desc\n";

ListedDevice Listed(const qvio::PropertyRecord& record) {
  const auto vid = cppu::ToUint32(record.at("usb-vid"));
  const auto pid = cppu::ToUint32(record.at("usb-pid"));
  const bool available = record.at("available") == "1";
  const auto& locator = record.at("locator");
  const auto& serialNumber = record.at("device-sn");
  const auto& description = record.at("usb-desc");
  return {locator,
          available,
          {locator, "usb", serialNumber, UsbIds(vid, pid), "", available ? "yes" : "no", description},
          {{"iface-type", "usb"},
           {"locator", locator},
           {"device-sn", serialNumber},
           {"usb-vid", vid},
           {"usb-pid", pid},
           {"available", available},
           {"usb-desc", description}}};
}

}  // namespace

std::string UsbIds(uint32_t vid, uint32_t pid) {
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "%04x:%04x", vid, pid);
  return text.data();
}

Listing ListUsbDevices() {
  Listing listing;
  try {
    const auto text = ListedText(1 << 16, [](char* buffer, std::size_t* size) {
      return QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, kOptions, buffer, size);
    });
    for (const auto& record : qvio::ReadRecordList(text)) listing.devices.push_back(Listed(record));
  } catch (const CommandFailure& failure) {
    listing.note = std::string("usb: ") + failure.what();
  }
  return listing;
}

}  // namespace qvio_tool
