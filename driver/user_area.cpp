#include "driver/user_area.h"

namespace qvusb {
namespace {

constexpr std::size_t kVendorWord = 1;
constexpr std::size_t kProductWord = 2;
constexpr std::size_t kSerialNumberWord = 9;  ///< where its text begins, and its length
constexpr std::size_t kSmallEeprom = 128;
constexpr std::size_t kLargeEeprom = 256;  ///< of a larger one the chip uses no more
constexpr std::size_t kChecksumSize = 2;
constexpr uint16_t kBlank = 0xFFFF;

/// A small EEPROM appears twice in the addresses of a large one.
std::size_t FindSize(const ReadWord& read) {
  for (const auto word : {kVendorWord, kProductWord, kSerialNumberWord})
    if (read(word) != read(kSmallEeprom / 2 + word)) return kLargeEeprom;
  return kSmallEeprom;
}

}  // namespace

UserArea FindUserArea(std::size_t eepromSize, const ReadWord& read) {
  const auto vendor = read(kVendorWord);
  const auto text = read(kSerialNumberWord);
  if (vendor == 0 || vendor == kBlank || text == kBlank) return {};
  const auto size = eepromSize != 0 ? eepromSize : FindSize(read);
  // The pointers into a small EEPROM have a bit that does not belong to the address.
  const auto begin = (text & 0xFFU) % size;
  const auto length = static_cast<std::size_t>(text >> 8U);
  const auto end = size - kChecksumSize;
  const bool isPlausible = length != 0 && (begin + length) % 2 == 0 && begin + length <= end;
  if (!isPlausible) return {};
  return {begin + length, end - begin - length};
}

}  // namespace qvusb
