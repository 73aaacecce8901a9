#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qvusb {

/// The properties that all chips of a type share.
struct ChipKind {
  uint16_t release;        ///< the USB device release, which differs from type to type
  uint32_t type;           ///< as D2XX numbers them
  uint8_t channels;        ///< each is an interface of its own
  bool isHighSpeed;        ///< has the faster clock for the line
  bool hasChipId;          ///< the factory has given it a number
  std::size_t eepromSize;  ///< bytes; 0: not the same for all
};

/// Null for a release of no type that is known.
const ChipKind* KindOf(uint16_t release);

/// One channel of a chip that is plugged in.
struct Channel {
  ChipKind kind{};
  std::string device;  ///< the system's name of the chip, such as "1-2"
  uint32_t bus = 0;
  uint32_t address = 0;  ///< on the bus; the system gives every chip that is plugged in a new one
  uint8_t number = 0;    ///< of the channel; the first is 0
  uint16_t vendor = 0;
  uint16_t product = 0;
  bool runsAtHighSpeed = false;
  std::string description;
  std::string serialNumber;
  std::size_t packetSize = 0;  ///< bytes in one packet, with the two bytes of status
  std::string kernelDriver;    ///< of the interface; empty: none
  std::string tty;             ///< its serial port, such as "ttyUSB0"; empty: none
  bool isOpen = false;         ///< some process uses it, as a USB device or as a serial port
};

/// Whether both are the same channel, and the chip was not unplugged in between.
bool IsSame(const Channel& one, const Channel& other);

}  // namespace qvusb
