#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "options/property_keys.h"

namespace qvio {

/// The option sets: one struct each, whose members hold the defaults. The readers throw OptionsError; a key
/// that is absent leaves its default. Times are in milliseconds. In every set `strict` rejects unknown keys.

/// Options of the whole process.
struct GlobalOptions {
  bool strict = false;
  std::string locatorFormatNetwork;          ///< "sn", "host" or empty: as it is
  std::vector<std::string> discoveryIfaces;  ///< where devices are watched
};
GlobalOptions ReadGlobalOptions(std::string_view text);

/// Opening a serial port.
struct SerialOptions {
  bool strict = false;
  uint32_t baudrate = 0;  ///< 0 is not a speed: the option is needed
  bool xonxoff = false;
};
SerialOptions ReadSerialOptions(std::string_view text);

/// Opening a TCP link.
struct NetworkOptions {
  bool strict = false;
  uint32_t connectTimeout = 5000;
  uint32_t port = 0;                ///< used when the locator has none; 0: none
  std::vector<std::string> ifaces;  ///< where an unknown serial number is searched
  uint32_t discoveryTimeout = 100;
};
NetworkOptions ReadNetworkOptions(std::string_view text);

/// Opening a USB link.
struct UsbOptions {
  bool strict = false;
  uint32_t rxTimeout = 1000;
  uint32_t txTimeout = 1000;
  uint32_t ftdiLatency = 2;
  uint32_t healthCheck = 250;
  std::optional<uint32_t> baudrate;
  std::vector<std::string> productNames;
  std::optional<std::string> ftdiFlowControl;
};
UsbOptions ReadUsbOptions(std::string_view text);

/// Listing the locators of USB chips.
struct UsbLocatorOptions {
  bool strict = false;
  std::string productName;  ///< empty: any, as with the numbers
  bool canonicalLocator = false;
  std::string usbVid;
  std::string usbPid;
  bool includeSn = false;
  bool includeId = false;
  bool includeDs = false;
  bool includeUsbVid = false;
  bool includeUsbPid = false;
  bool forceRescan = false;
};
UsbLocatorOptions ReadUsbLocatorOptions(std::string_view text);

/// Listing interfaces.
struct InterfaceListOptions {
  bool strict = false;
  std::vector<std::string> ifaceTypes;
  Selection only;  ///< at most one key
  Selection include;
};
InterfaceListOptions ReadInterfaceListOptions(std::string_view text);

/// Listing devices of all kinds. A key that several kinds know is one option for all of them.
struct DeviceListOptions {
  bool strict = false;
  std::vector<std::string> ifaceTypes;
  bool onlyLocator = false;
  bool forceRescan = false;
  bool findOnlyAvailable = true;
  std::vector<uint32_t> findProtocolIds;
  std::vector<uint32_t> findUsbPids;
  std::vector<uint32_t> findUsbVids;
  std::vector<std::string> findUsbProductNames;
  std::string locatorFormatUsb = "sn";
  std::vector<std::string> ifaces;
  uint32_t discoveryTimeout = 100;
  std::vector<std::string> findDeviceSns;
  std::vector<uint32_t> findDeviceTypes;
  std::string locatorFormatNetwork = "sn";
  Selection include;
};
DeviceListOptions ReadDeviceListOptions(std::string_view text);

/// Reading the device of a discovery event.
struct EventOptions {
  bool strict = false;
  bool onlyLocator = false;
  Selection include;
};
EventOptions ReadEventOptions(std::string_view text);

/// For programs whose users type options: throws OptionsError for an unknown key and for a number with
/// something after its digits, which the readers above accept.
/// @param interfaceType  QV_IO_INTERFACE_…, of the link to open
void CheckTypedOptions(uint32_t interfaceType, std::string_view text);

}  // namespace qvio
