#include "io/ftdi/find_chip.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <vector>

#include "options/locator.h"
#include "options/result.h"

namespace qvio {
namespace {

using Entries = std::vector<UsbDeviceList::Entry>;

/// A decimal number, whole.
uint64_t ReadNumber(std::string_view text) {
  uint64_t number = 0;
  const auto* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  Require(error == std::errc{} && rest == end, QV_IO_ERROR_INVALID_LOCATOR);
  return number;
}

bool IsProduct(const UsbDevice& device, const UsbOptions& options) {
  const auto& names = options.productNames;
  return names.empty() || std::ranges::find(names, device.description) != names.end();
}

bool IsWanted(const UsbDevice& device, const UsbOptions& options) {
  return device.isAvailable() && IsProduct(device, options);
}

const Entries& ReadList(UsbAccess& usb, bool force) {
  try {
    return usb.devices().upToDate(usb.functions(), force);
  } catch (const Failure&) {
    throw Failure(QV_IO_ERROR_DRIVER_FAILURE);
  }
}

template <class Predicate>
UsbDevice FindFirst(const Entries& entries, Predicate predicate) {
  const auto found = std::ranges::find_if(entries, predicate, &UsbDeviceList::Entry::device);
  Require(found != entries.end(), QV_IO_ERROR_DEVICE_NOT_FOUND);
  return found->device;
}

UsbDevice BySerialNumber(std::string_view serialNumber, const UsbOptions& options, UsbAccess& usb) {
  return FindFirst(ReadList(usb, true), [&](const UsbDevice& device) {
    // A dual-channel chip is known by the serial number without the letter of its first channel.
    const auto* const channel = device.isHighSpeedDualChannel() ? "A" : "";
    return IsWanted(device, options) && device.serialNumber == std::string(serialNumber) + channel;
  });
}

UsbDevice ByIndex(uint64_t index, const UsbOptions& options, UsbAccess& usb) {
  const auto& entries = ReadList(usb, true);
  Require(index < entries.size(), QV_IO_ERROR_DEVICE_NOT_FOUND);
  return FindFirst(entries,
                   [&](const UsbDevice& device) { return IsWanted(device, options) && index-- == 0; });
}

/// By the list as it is kept: reading the chips' ids takes long.
UsbDevice ByChipId(uint64_t id, const UsbOptions& options, UsbAccess& usb) {
  const auto& entries = ReadList(usb, false);
  unsigned long count = 0;
  Require(usb.functions().FTID_GetNumDevices(&count) == d2xx::Ok, QV_IO_ERROR_DRIVER_FAILURE);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!IsProduct(entries[i].device, options)) continue;
    const auto known = usb.devices().chipId(usb.functions(), i);
    if (known && *known == id) return entries[i].device;
  }
  throw Failure(QV_IO_ERROR_DEVICE_NOT_FOUND);
}

}  // namespace

void RequireUsbLocator(std::string_view locator) {
  const auto fields = LocatorFields(locator);
  Require(fields.size() == 3 && fields[0] == "usb", QV_IO_ERROR_INVALID_LOCATOR);
}

UsbDevice FindChip(std::string_view locator, const UsbOptions& options, UsbAccess& usb) {
  const auto fields = LocatorFields(locator);
  const auto form = fields.at(1);
  const auto value = fields.at(2);
  if (form == "sn") return BySerialNumber(value, options, usb);
  if (form == "ix") return ByIndex(ReadNumber(value), options, usb);
  if (form == "id") return ByChipId(ReadNumber(value), options, usb);
  throw Failure(QV_IO_ERROR_INVALID_LOCATOR);
}

}  // namespace qvio
