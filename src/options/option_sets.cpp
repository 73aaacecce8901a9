#include "options/option_sets.h"

#include <array>
#include <span>
#include <tuple>

#include "options/option_set.h"
#include "quorvio/quorvio.h"

namespace qvio {
namespace {

using Table = std::span<const std::string_view>;

// The order of a table decides which of several wrong values is reported.

constexpr std::tuple kGlobalKeys{Key{"strict", &GlobalOptions::strict},
                                 Key{"locator-format-network", &GlobalOptions::locatorFormatNetwork},
                                 Key{"discovery-iface", &GlobalOptions::discoveryIfaces}};

constexpr std::tuple kSerialKeys{Key{"strict", &SerialOptions::strict},
                                 Key{"baudrate", &SerialOptions::baudrate},
                                 Key{"xonxoff", &SerialOptions::xonxoff}};

constexpr std::tuple kNetworkKeys{Key{"strict", &NetworkOptions::strict},
                                  Key{"connect-timeout", &NetworkOptions::connectTimeout},
                                  Key{"port", &NetworkOptions::port}, Key{"iface", &NetworkOptions::ifaces},
                                  Key{"discovery-timeout", &NetworkOptions::discoveryTimeout}};

constexpr std::tuple kUsbKeys{Key{"strict", &UsbOptions::strict},
                              Key{"rx-timeout", &UsbOptions::rxTimeout},
                              Key{"tx-timeout", &UsbOptions::txTimeout},
                              Key{"ftdi-latency", &UsbOptions::ftdiLatency},
                              Key{"health-check", &UsbOptions::healthCheck},
                              Key{"baudrate", &UsbOptions::baudrate},
                              Key{"product-name", &UsbOptions::productNames},
                              Key{"ftdi-flow-control", &UsbOptions::ftdiFlowControl}};

constexpr std::tuple kUsbLocatorKeys{Key{"strict", &UsbLocatorOptions::strict},
                                     Key{"product-name", &UsbLocatorOptions::productName},
                                     Key{"canonical-locator", &UsbLocatorOptions::canonicalLocator},
                                     Key{"usb-vid", &UsbLocatorOptions::usbVid},
                                     Key{"usb-pid", &UsbLocatorOptions::usbPid},
                                     Key{"include-sn", &UsbLocatorOptions::includeSn},
                                     Key{"include-id", &UsbLocatorOptions::includeId},
                                     Key{"include-ds", &UsbLocatorOptions::includeDs},
                                     Key{"include-usb-vid", &UsbLocatorOptions::includeUsbVid},
                                     Key{"include-usb-pid", &UsbLocatorOptions::includeUsbPid},
                                     Key{"force-rescan", &UsbLocatorOptions::forceRescan}};

constexpr std::array<Table, 2> kInterfaceTables{kNetworkInterfaceKeys, kSerialPortKeys};
constexpr std::tuple kInterfaceListKeys{
    Key{"strict", &InterfaceListOptions::strict}, Key{"iface-type", &InterfaceListOptions::ifaceTypes},
    KeyFamily{"only-", kInterfaceTables, &InterfaceListOptions::only},
    KeyFamily{"include-", kInterfaceTables, &InterfaceListOptions::include}};

constexpr std::array<Table, 3> kDeviceTables{kUsbDeviceKeys, kNetworkDeviceKeys, kSerialDeviceKeys};
constexpr std::tuple kDeviceListKeys{Key{"strict", &DeviceListOptions::strict},
                                     Key{"iface-type", &DeviceListOptions::ifaceTypes},
                                     Key{"only-locator", &DeviceListOptions::onlyLocator},
                                     Key{"force-rescan", &DeviceListOptions::forceRescan},
                                     Key{"find-only-available", &DeviceListOptions::findOnlyAvailable},
                                     Key{"find-protocol-id", &DeviceListOptions::findProtocolIds},
                                     Key{"find-usb-pid", &DeviceListOptions::findUsbPids},
                                     Key{"find-usb-vid", &DeviceListOptions::findUsbVids},
                                     Key{"find-usb-product-name", &DeviceListOptions::findUsbProductNames},
                                     Key{"locator-format-usb", &DeviceListOptions::locatorFormatUsb},
                                     Key{"iface", &DeviceListOptions::ifaces},
                                     Key{"discovery-timeout", &DeviceListOptions::discoveryTimeout},
                                     Key{"find-device-sn", &DeviceListOptions::findDeviceSns},
                                     Key{"find-device-type", &DeviceListOptions::findDeviceTypes},
                                     Key{"locator-format-network", &DeviceListOptions::locatorFormatNetwork},
                                     KeyFamily{"include-", kDeviceTables, &DeviceListOptions::include}};

constexpr std::array<Table, 1> kEventTables{kNetworkDeviceKeys};
constexpr std::tuple kEventKeys{Key{"strict", &EventOptions::strict},
                                Key{"only-locator", &EventOptions::onlyLocator},
                                KeyFamily{"include-", kEventTables, &EventOptions::include}};

}  // namespace

GlobalOptions ReadGlobalOptions(std::string_view text) {
  return ReadOptions<GlobalOptions>(text, kGlobalKeys);
}

SerialOptions ReadSerialOptions(std::string_view text) {
  return ReadOptions<SerialOptions>(text, kSerialKeys);
}

NetworkOptions ReadNetworkOptions(std::string_view text) {
  return ReadOptions<NetworkOptions>(text, kNetworkKeys);
}

UsbOptions ReadUsbOptions(std::string_view text) { return ReadOptions<UsbOptions>(text, kUsbKeys); }

UsbLocatorOptions ReadUsbLocatorOptions(std::string_view text) {
  return ReadOptions<UsbLocatorOptions>(text, kUsbLocatorKeys);
}

InterfaceListOptions ReadInterfaceListOptions(std::string_view text) {
  auto options = ReadOptions<InterfaceListOptions>(text, kInterfaceListKeys);
  if (options.only.size() > 1) throw OptionsError("Only one only-* option may be set");
  return options;
}

DeviceListOptions ReadDeviceListOptions(std::string_view text) {
  return ReadOptions<DeviceListOptions>(text, kDeviceListKeys);
}

EventOptions ReadEventOptions(std::string_view text) { return ReadOptions<EventOptions>(text, kEventKeys); }

void CheckTypedOptions(uint32_t interfaceType, std::string_view text) {
  if (interfaceType == QV_IO_INTERFACE_USB) RequireExact(text, kUsbKeys);
  if (interfaceType == QV_IO_INTERFACE_NETWORK) RequireExact(text, kNetworkKeys);
  if (interfaceType == QV_IO_INTERFACE_SERIAL) RequireExact(text, kSerialKeys);
}

}  // namespace qvio
