#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "io/ftdi/driver.h"

namespace qvio {

/// One chip as the driver lists it.
struct UsbDevice {
  d2xx::DeviceNode node;
  std::string serialNumber;
  std::string rawDescription;
  std::string description;  ///< trimmed: what users know the product by

  [[nodiscard]] uint32_t vid() const { return node.id >> 16U; }
  [[nodiscard]] uint32_t pid() const { return node.id & 0xFFFFU; }
  [[nodiscard]] bool isAvailable() const { return (node.flags & d2xx::OpenSomewhere) == 0; }
  [[nodiscard]] bool isHighSpeed() const { return (node.flags & d2xx::HighSpeed) != 0; }
  [[nodiscard]] bool isHighSpeedDualChannel() const {
    return isHighSpeed() && node.type == d2xx::kHighSpeedDualChannel;
  }
};

/// Presents the first channel of a dual-channel chip under the product's own description: with " A" anywhere
/// in the description of a high-speed chip its last two characters go. Products rely on that as it is.
std::string_view TrimDescription(std::string_view description, bool isHighSpeed);

/// Asks the driver which chips there are, in its order. Throws Failure with QV_IO_ERROR_QUERY_FAILED.
std::vector<UsbDevice> ReadUsbDevices(const D2xxFunctions& functions);

/// The driver's list, kept for a while, since the driver is slow to list. Caller holds the USB mutex, except
/// to drop the list.
class UsbDeviceList {
 public:
  /// A chip, and what can be read of it only by opening it, remembered until the next scan. A chip id is read
  /// until that succeeds; the protocol id is asked for once, since a device that does not answer takes long.
  struct Entry {
    UsbDevice device;
    std::optional<uint32_t> chipId;
    std::optional<std::optional<uint8_t>> protocolId;  ///< none inside: there was no answer
  };

  /// The list, at most 1500 ms old and not dropped; read again with `force`. Throws Failure with
  /// QV_IO_ERROR_QUERY_FAILED, after which the next call reads again.
  std::vector<Entry>& upToDate(const D2xxFunctions& functions, bool force);

  /// The chip id of the entry with this index of the list that was given last; opens the chip if it was not
  /// read yet. None for a chip that cannot be opened or has none.
  std::optional<uint32_t> chipId(const D2xxFunctions& functions, std::size_t index);

  /// After a chip was opened or closed: the list no longer says which ones are available. Any thread, without
  /// the mutex: a receive thread that closes its chip must not wait for an open or a listing.
  void drop() noexcept { dropped_ = true; }

 private:
  std::atomic<bool> dropped_ = false;
  bool valid_ = false;
  std::chrono::steady_clock::time_point lastScan_;
  std::vector<Entry> entries_;
};

}  // namespace qvio
