#include "io/ftdi/find_chip.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <vector>

#include "options/locator.h"
#include "util/failure.h"
#include "util/lookup.h"

namespace qvio {
namespace {

using Entries = std::vector<UsbDeviceList::Entry>;

[[noreturn]] void FailForm(const Locator& locator) {
  Fail(QV_IO_ERROR_INVALID_LOCATOR, "not usb:sn:SERIAL, usb:id:NUMBER or usb:ix:INDEX: %", {locator.text});
}

/// A decimal number, whole.
uint64_t ReadNumber(std::string_view text) {
  uint64_t number = 0;
  const auto* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  Require(error == std::errc{} && rest == end, QV_IO_ERROR_INVALID_LOCATOR, "not a number: %", {text});
  return number;
}

bool IsProduct(const UsbDevice& device, const UsbOptions& options) {
  return cppu::Allows(options.productNames, device.description);
}

bool IsWanted(const UsbDevice& device, const UsbOptions& options) {
  return device.isAvailable() && IsProduct(device, options);
}

/// A list that fails is a failure to open here, which has a result of its own.
const Entries& ReadList(UsbAccess& usb, bool force) {
  try {
    return usb.devices().upToDate(usb.functions(), force);
  } catch (const Failure& failure) {
    Fail(QV_IO_ERROR_DRIVER_FAILURE, "%", {failure.what()});
  }
}

/// @param kind  of the value: "serial number", "index" or "id"
[[noreturn]] void FailNotFound(std::string_view kind, std::string_view value, const UsbOptions& options) {
  Fail(QV_IO_ERROR_DEVICE_NOT_FOUND, "no available chip% has the % %",
       {options.productNames.empty() ? "" : " of the given product-name", kind, value});
}

UsbDevice BySerialNumber(std::string_view serialNumber, const UsbOptions& options, UsbAccess& usb) {
  const auto& entries = ReadList(usb, true);
  const auto isNamed = [&](const UsbDevice& device) {
    // A dual-channel chip is known by the serial number without the letter of its first channel.
    const auto* const channel = device.isHighSpeedDualChannel() ? "A" : "";
    return IsWanted(device, options) && device.serialNumber == std::string(serialNumber) + channel;
  };
  const auto found = std::ranges::find_if(entries, isNamed, &UsbDeviceList::Entry::device);
  if (found == entries.end()) FailNotFound("serial number", serialNumber, options);
  return found->device;
}

UsbDevice ByIndex(std::string_view text, const UsbOptions& options, UsbAccess& usb) {
  auto left = ReadNumber(text);
  const auto& entries = ReadList(usb, true);
  const auto isNext = [&](const UsbDevice& device) { return IsWanted(device, options) && left-- == 0; };
  const auto found = std::ranges::find_if(entries, isNext, &UsbDeviceList::Entry::device);
  if (found == entries.end()) FailNotFound("index", text, options);
  return found->device;
}

/// Uses the list as it is, because reading the ids of chips is slow.
UsbDevice ByChipId(std::string_view text, const UsbOptions& options, UsbAccess& usb) {
  const auto id = ReadNumber(text);
  const auto& entries = ReadList(usb, false);
  unsigned long count = 0;
  RequireDriver(usb.functions().FTID_GetNumDevices(&count), "FTID_GetNumDevices");
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!IsProduct(entries[i].device, options)) continue;
    const auto known = usb.devices().chipId(usb.functions(), i);
    if (known && *known == id) return entries[i].device;
  }
  FailNotFound("id", text, options);
}

}  // namespace

void RequireUsbLocator(const Locator& locator) {
  if (locator.fields.size() != 2) FailForm(locator);
}

UsbDevice FindChip(const Locator& locator, const UsbOptions& options, UsbAccess& usb) {
  const auto& form = locator.fields.at(0);
  const auto& value = locator.fields.at(1);
  if (form == "sn") return BySerialNumber(value, options, usb);
  if (form == "ix") return ByIndex(value, options, usb);
  if (form == "id") return ByChipId(value, options, usb);
  FailForm(locator);
}

}  // namespace qvio
