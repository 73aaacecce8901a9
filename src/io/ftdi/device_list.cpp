#include "io/ftdi/device_list.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "io/ftdi/chip.h"
#include "util/failure.h"

namespace qvio {
namespace {

using namespace std::chrono_literals;

constexpr auto kLifetime = 1500ms;

UsbDevice Describe(const d2xx::DeviceNode& node) {
  UsbDevice device{node,
                   std::string(d2xx::FieldText(node.serialNumber, sizeof node.serialNumber)),
                   std::string(d2xx::FieldText(node.description, sizeof node.description)),
                   {}};
  device.description = TrimDescription(device.rawDescription, device.isHighSpeed());
  return device;
}

}  // namespace

std::string_view TrimDescription(std::string_view description, bool isHighSpeed) {
  const bool trims = isHighSpeed && description.rfind(" A") != std::string_view::npos;
  return trims ? description.substr(0, description.size() - 2) : description;
}

std::vector<UsbDevice> ReadUsbDevices(const D2xxFunctions& functions) {
  uint32_t count = 0;
  RequireDriver(functions.FT_CreateDeviceInfoList(&count), "FT_CreateDeviceInfoList",
                QV_IO_ERROR_QUERY_FAILED);
  std::vector<UsbDevice> devices;
  if (count == 0) return devices;
  std::vector<d2xx::DeviceNode> nodes(count);
  RequireDriver(functions.FT_GetDeviceInfoList(nodes.data(), &count), "FT_GetDeviceInfoList",
                QV_IO_ERROR_QUERY_FAILED);
  nodes.resize(std::min<std::size_t>(nodes.size(), count));  // chips may have gone in between
  std::ranges::transform(nodes, std::back_inserter(devices), Describe);
  return devices;
}

std::vector<UsbDeviceList::Entry>& UsbDeviceList::upToDate(const D2xxFunctions& functions, bool force) {
  const auto now = std::chrono::steady_clock::now();
  const auto age = std::chrono::floor<std::chrono::milliseconds>(now - lastScan_);
  // Taken back before the driver is asked: a chip that is closed while it answers drops this list too.
  const bool dropped = dropped_.exchange(false);
  if (valid_ && !dropped && !force && age < kLifetime) return entries_;
  // Until the new list is complete: a failure below must not leave the old one in use.
  valid_ = false;
  lastScan_ = now;
  auto devices = ReadUsbDevices(functions);
  entries_.clear();
  for (auto& device : devices) entries_.push_back({std::move(device), {}, {}});
  valid_ = true;
  return entries_;
}

std::optional<uint32_t> UsbDeviceList::chipId(const D2xxFunctions& functions, std::size_t index) {
  auto& known = entries_.at(index).chipId;
  if (!known) {
    const auto chip = Chip::openByIndex(functions, index);
    if (chip) known = chip->id();
  }
  return known;
}

}  // namespace qvio
