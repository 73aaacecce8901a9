#ifndef QUORVIO_DETAIL_LISTING_HPP
#define QUORVIO_DETAIL_LISTING_HPP

#include <array>
#include <charconv>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "quorvio/detail/error.hpp"
#include "quorvio/detail/options.hpp"
#include "quorvio/detail/text_out.hpp"

namespace quorvio {

/** Kinds of interface, with the numbers of the C functions. */
enum class InterfaceKind : uint32_t {
  usb = QV_IO_INTERFACE_USB,
  network = QV_IO_INTERFACE_NETWORK,
  serial = QV_IO_INTERFACE_SERIAL,
  all = QV_IO_INTERFACE_ALL
};

/** All properties that a listing gives, by the keys of quorvio.h, plain. */
using Properties = std::map<std::string, std::string, std::less<>>;

/** A device as a listing gives it. Numbers are 0 and texts empty where a device has none. */
struct Device {
  InterfaceKind kind = InterfaceKind::all;  ///< usb or network
  std::string locator;                      ///< for Channel; empty: it cannot be named
  std::string serialNumber;                 ///< as the device gives it
  bool available = false;                   ///< not in use by somebody else
  uint32_t protocolId = 0;                  ///< the protocol that it speaks

  std::string info;       ///< network: what the device says of itself; USB: the product's description
  uint32_t type = 0;      ///< network
  std::string interface;  ///< network: the local interface, as an `iface` option takes it
  std::string host;       ///< network
  uint16_t port = 0;      ///< network

  uint32_t chipId = 0;     ///< USB
  uint16_t vendorId = 0;   ///< USB
  uint16_t productId = 0;  ///< USB

  Properties properties;  ///< all of the above as text, and whatever else the library gives
};

/** A local network interface. */
struct Interface {
  std::string name;        ///< of the system, such as eth0
  std::string address;     ///< dotted; "network:" + address is what the options `iface` and DeviceWatch take
  std::string subnetMask;  ///< dotted
  Properties properties;   ///< all of the above as text, and whatever else the library gives
};

namespace detail {

inline std::string unescape(std::string_view value) {
  static constexpr std::array<std::pair<std::string_view, char>, 4> kCodes{
      {{"%25", '%'}, {"%0A", '\n'}, {"%7C", '|'}, {"%3D", '='}}};
  std::string plain;
  plain.reserve(value.size());
  while (!value.empty()) {
    char next = value.front();
    std::size_t length = 1;
    for (const auto& [code, character] : kCodes) {
      if (value.substr(0, code.size()) != code) continue;
      next = character;
      length = code.size();
    }
    plain += next;
    value.remove_prefix(length);
  }
  return plain;
}

/// Takes the text before the separator off the front, and the separator.
inline std::string_view cut(std::string_view& text, char separator) {
  const auto end = text.find(separator);
  const auto front = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return front;
}

inline Properties readRecord(std::string_view line) {
  Properties properties;
  while (!line.empty()) {
    auto value = cut(line, '|');
    const auto key = cut(value, '=');
    properties.emplace(key, unescape(value));
  }
  return properties;
}

inline std::string textAt(const Properties& properties, std::string_view key) {
  const auto found = properties.find(key);
  return found == properties.end() ? std::string() : found->second;
}

template <class Number>
Number numberAt(const Properties& properties, std::string_view key) {
  const auto text = textAt(properties, key);
  Number number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

inline Device readDevice(std::string_view line) {
  auto all = readRecord(line);
  Device device;
  device.kind = textAt(all, "iface-type") == "usb" ? InterfaceKind::usb : InterfaceKind::network;
  device.locator = textAt(all, "locator");
  device.serialNumber = textAt(all, "device-sn");
  device.available = textAt(all, "available") == "1";
  device.protocolId = numberAt<uint32_t>(all, "protocol-id");
  device.info = textAt(all, device.kind == InterfaceKind::usb ? "usb-desc" : "device-info");
  device.type = numberAt<uint32_t>(all, "device-type");
  device.interface = textAt(all, "iface");
  device.host = textAt(all, "network-host");
  device.port = numberAt<uint16_t>(all, "network-port");
  device.chipId = numberAt<uint32_t>(all, "usb-id");
  device.vendorId = numberAt<uint16_t>(all, "usb-vid");
  device.productId = numberAt<uint16_t>(all, "usb-pid");
  device.properties = std::move(all);
  return device;
}

inline Interface readInterface(std::string_view line) {
  auto all = readRecord(line);
  return {textAt(all, "name"), textAt(all, "network-host"), textAt(all, "network-subnet-mask"),
          std::move(all)};
}

template <class Read>
auto readLines(std::string_view text, Read read) {
  std::vector<decltype(read(text))> rows;
  while (!text.empty()) rows.push_back(read(cut(text, '\n')));
  return rows;
}

}  // namespace detail

/** The devices that there are, now. For what the options mean see QV_IO_EnumerateDevices; `iface-type` and
 * what to write are set here. Network devices: name the interfaces to search,
 *
 *     listDevices(InterfaceKind::network, Options().add("iface", "network:192.168.0.2"))
 *
 * @param kind     usb, network or all: serial ports cannot be listed, so that `serial` and lists that include
 *                 it throw Errc::notSupported
 * @param options  filters, and where and how long to search
 * @param keys     of the properties to ask for; empty: all, for which USB devices must be opened */
inline std::vector<Device> listDevices(InterfaceKind kind, Options options = {},
                                       const std::vector<std::string>& keys = {}) {
  const auto* word = kind == InterfaceKind::usb       ? "usb"
                     : kind == InterfaceKind::network ? "network"
                     : kind == InterfaceKind::serial  ? "serial"
                                                      : "all";
  options.add("iface-type", word).add(keys.empty() ? "include-all" : "include-iface-type");
  for (const auto& key : keys) options.add("include-" + key);
  constexpr std::size_t kUsualSize = 1 << 20;  // a thousand devices: a second call would search again
  const auto text = detail::textOut(
      "list devices",
      [&](char* buffer, std::size_t* size) {
        return QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, options.text().c_str(), buffer, size);
      },
      kUsualSize);
  return detail::readLines(text, detail::readDevice);
}

/** The local network interfaces. */
inline std::vector<Interface> listInterfaces() {
  const auto text = detail::textOut("list interfaces", [](char* buffer, std::size_t* size) {
    return QV_IO_EnumerateInterfaces("iface-type network\ninclude-all", buffer, size);
  });
  return detail::readLines(text, detail::readInterface);
}

}  // namespace quorvio

#endif
