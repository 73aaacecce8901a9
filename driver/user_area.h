#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace qvusb {

/// Reads a word of an EEPROM.
using ReadWord = std::function<uint16_t(std::size_t offset)>;

/// The part of an EEPROM that the chip leaves to the maker of the product: from the end of the texts to the
/// checksum. In bytes, both even.
struct UserArea {
  std::size_t begin = 0;
  std::size_t size = 0;

  friend bool operator==(const UserArea&, const UserArea&) = default;
};

/// Empty when the EEPROM is blank or missing, or its texts are not where they can be.
/// @param eepromSize  0: not known, to be found out
UserArea FindUserArea(std::size_t eepromSize, const ReadWord& read);

}  // namespace qvusb
