#pragma once

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "discovery_options.h"
#include "table.h"

namespace qvio_tool {

/// One device of any kind, ready to be shown.
struct ListedDevice {
  std::string locator;
  bool available = true;
  Table::Row row;  ///< under kListHeadings
  nlohmann::ordered_json json;
};

inline const Table::Row kListHeadings{"LOCATOR", "TYPE",      "SERIAL NUMBER", "ADDRESS",
                                      "PORT",    "AVAILABLE", "INFO"};

/// The devices of one kind, available or not.
struct Listing {
  std::vector<ListedDevice> devices;
  std::string note;  ///< why the kind could not be listed; empty: it was
};

/// Asks several times within the time; every device that has answered once counts, as it was last.
/// Throws CommandFailure for an interface that was named and cannot be used.
Listing ListNetworkDevices(const DiscoveryOptions& options, std::chrono::milliseconds time, uint32_t tries);

/// "0403:6001".
std::string UsbIds(uint32_t vid, uint32_t pid);

/// The chips that FTDI's driver knows.
Listing ListUsbDevices();

/// The serial ports of the machine; which of them have a device behind them nobody can tell.
Listing ListSerialPorts();

}  // namespace qvio_tool
