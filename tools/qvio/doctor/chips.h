#pragma once

#include <string>
#include <vector>

#include "doctor/machine.h"

namespace qvio_tool {

/// An FTDI chip on the bus, as sysfs shows it.
struct UsbChip {
  std::string name;                     ///< of its folder, "1-2" for example
  std::string text;                     ///< for people: name, product, serial number
  std::string product;                  ///< as the chip names it
  std::string node;                     ///< its file below /dev/bus/usb
  std::vector<std::string> kernelHeld;  ///< its interfaces that ftdi_sio makes serial ports of

  [[nodiscard]] bool isSerialPort() const { return !kernelHeld.empty(); }
};

std::vector<UsbChip> ChipsOf(const Machine& machine);

/// Whether one of FTDI's libraries is installed, working or not: then chips are meant for usb: locators.
bool HasFtdiLibrary(const Machine& machine);

/// Whether the driver that the loader finds is our own, which takes chips from ftdi_sio and gives them back.
bool HasOwnDriver(const Machine& machine);

}  // namespace qvio_tool
