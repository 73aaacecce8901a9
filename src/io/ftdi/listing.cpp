#include "io/ftdi/listing.h"

#include <optional>
#include <stdexcept>
#include <vector>

#include "io/ftdi/protocol_id.h"
#include "io/ftdi/usb.h"
#include "util/failure.h"
#include "util/lookup.h"
#include "util/number.h"
#include "util/text.h"

namespace qvio {
namespace {

using Entry = UsbDeviceList::Entry;

// ---- locators

/// The number that a filter asks for; none for an empty text.
std::optional<uint32_t> ReadFilter(const char* key, const std::string& text) {
  if (text.empty()) return {};
  try {
    return cppu::ToUint32(text);
  } catch (const std::logic_error&) {
    throw OptionsError("Conversion of " + std::string(key) + " failed");
  }
}

struct LocatorFilter {
  std::string productName;
  std::optional<uint32_t> vid;
  std::optional<uint32_t> pid;

  [[nodiscard]] bool passes(const UsbDevice& device) const {
    return (productName.empty() || productName == device.description) && (!vid || *vid == device.vid()) &&
           (!pid || *pid == device.pid());
  }
};

std::string LocatorLine(const UsbDevice& device, const UsbLocatorOptions& options,
                        const std::optional<uint32_t>& chipId) {
  std::string line = "usb";
  const auto add = [&](bool chosen, const char* marker, const std::string& value) {
    if (chosen) line += marker + value;
  };
  // Without an id the marker is left out too.
  add(chipId.has_value(), ":id:", std::to_string(chipId.value_or(0)));
  add(options.includeUsbVid, ":usb-vid:", std::to_string(device.vid()));
  add(options.includeUsbPid, ":usb-pid:", std::to_string(device.pid()));
  add(options.includeDs, ":ds:", device.description);
  add(options.canonicalLocator || options.includeSn, ":sn:", device.serialNumber);
  return line;
}

// ---- records

/// The filters that the driver's list alone can answer.
bool IsAskedFor(const UsbDevice& device, const DeviceListOptions& options) {
  return cppu::Allows(options.findUsbProductNames, device.description) &&
         cppu::Allows(options.findUsbPids, device.pid()) && cppu::Allows(options.findUsbVids, device.vid()) &&
         (device.isAvailable() || !options.findOnlyAvailable);
}

bool IsSelected(const DeviceListOptions& options, std::string_view key) {
  return options.include.contains(key) || options.include.contains(kAllKeys);
}

bool NeedsProtocolId(const DeviceListOptions& options) {
  return IsSelected(options, "protocol-id") || !options.findProtocolIds.empty();
}

/// Asks at most once in the life of the driver's list.
std::optional<uint8_t> ProtocolId(UsbAccess& usb, Entry& entry, std::size_t index) {
  if (!entry.device.isAvailable()) return {};
  if (!entry.protocolId) entry.protocolId = AskProtocolId(usb.functions(), entry.device, index);
  return *entry.protocolId;
}

/// The properties that are not in the driver's list.
struct Answers {
  std::optional<uint32_t> chipId;
  std::optional<uint8_t> protocolId;
};

PropertyRecord MakeRecord(const UsbDevice& device, const Answers& answers, bool locatorById) {
  PropertyRecord record{{"iface-type", "usb"},
                        {"usb-vid", std::to_string(device.vid())},
                        {"usb-pid", std::to_string(device.pid())},
                        {"usb-desc", device.description},
                        {"device-sn", device.serialNumber},
                        {"available", device.isAvailable() ? "1" : "0"}};
  if (answers.chipId) record.emplace("usb-id", std::to_string(*answers.chipId));
  if (answers.protocolId) record.emplace("protocol-id", std::to_string(*answers.protocolId));
  if (!locatorById) record.emplace("locator", "usb:sn:" + device.serialNumber);
  if (locatorById && answers.chipId) record.emplace("locator", "usb:id:" + std::to_string(*answers.chipId));
  return record;
}

/// Refused rather than taken as "sn": the caller would open the wrong kind of locator.
bool ReadLocatorById(const std::string& word) {
  Require(word == "sn" || word == "id", QV_IO_ERROR_INVALID_ARGUMENT,
          "locator-format-usb is neither sn nor id: %", {word});
  return word == "id";
}

}  // namespace

std::string ListUsbLocators(std::string_view optionText) {
  UsbAccess usb;
  const auto options = ReadUsbLocatorOptions(optionText);
  const bool parts = options.includeSn || options.includeId || options.includeDs || options.includeUsbVid ||
                     options.includeUsbPid;
  Require(!options.canonicalLocator || !parts, QV_IO_ERROR_INVALID_ARGUMENT,
          "canonical-locator allows no include option");
  const LocatorFilter filter{options.productName, ReadFilter("usb-vid", options.usbVid),
                             ReadFilter("usb-pid", options.usbPid)};
  const auto& entries = usb.devices().upToDate(usb.functions(), options.forceRescan);
  if (options.includeId) {
    unsigned long count = 0;
    RequireDriver(usb.functions().FTID_GetNumDevices(&count), "FTID_GetNumDevices", QV_IO_ERROR_QUERY_FAILED);
  }
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto& device = entries[i].device;
    if (!filter.passes(device)) continue;
    const auto chipId = options.includeId ? usb.devices().chipId(usb.functions(), i) : std::nullopt;
    lines.push_back(LocatorLine(device, options, chipId));
  }
  return cppu::Join(lines, '\n');
}

void AppendUsbDevices(const DeviceListOptions& options, RecordList& records) {
  UsbAccess usb;
  const bool locatorById = ReadLocatorById(options.locatorFormatUsb);
  const bool needsChipId = locatorById || IsSelected(options, "usb-id");
  auto& entries = usb.devices().upToDate(usb.functions(), options.forceRescan);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    auto& entry = entries[i];
    // The cheap filters first: the rest opens the chip.
    if (!IsAskedFor(entry.device, options)) continue;
    Answers answers;
    if (NeedsProtocolId(options)) answers.protocolId = ProtocolId(usb, entry, i);
    const auto& wanted = options.findProtocolIds;
    if (!wanted.empty() && !(answers.protocolId && cppu::Allows(wanted, uint32_t{*answers.protocolId})))
      continue;
    if (needsChipId) answers.chipId = usb.devices().chipId(usb.functions(), i);
    records.push_back(MakeRecord(entry.device, answers, locatorById));
  }
}

}  // namespace qvio
