#pragma once

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "device/search.h"
#include "terminal/output.h"

namespace qvio_tool {

/// A device of any kind in the forms in which it can be printed.
struct ListedDevice {
  std::string locator;
  bool available = true;
  Table::Row row;  ///< under kListHeadings
  nlohmann::ordered_json json;
};

inline const Table::Row kListHeadings{"LOCATOR", "KIND",    "SERIAL NUMBER", "AVAILABLE",
                                      "TYPE",    "ADDRESS", "USB ID",        "INFO"};

/// Devices, available or not, and the kinds that could not be listed.
struct DeviceList {
  std::vector<ListedDevice> devices;
  std::vector<std::string> notes;  ///< "KIND: reason"

  /// Asks several times within the time; every device that has answered once counts, in its last state.
  /// Throws CommandFailure for an interface that was named and cannot be used.
  void addNetworkDevices(const DiscoveryOptions& options, std::chrono::milliseconds time, uint32_t tries);

  /// The chips that FTDI's driver knows.
  void addUsbDevices();

  /// The serial ports of the machine, whether a device is connected or not.
  void addSerialPorts();
};

/// Every network device that answers one of the searches, in the order of first appearance, in its last
/// state.
std::vector<quorvio::Device> AskRepeatedly(const DeviceSearch& search, std::chrono::milliseconds each,
                                           uint32_t tries);

/// An object with the keys of the property record; numbers are numbers and `available` is a bool.
nlohmann::ordered_json ToJson(const quorvio::Device& networkDevice);

}  // namespace qvio_tool
