#include "driver/chip.h"

#include <algorithm>
#include <array>

namespace qvusb {
namespace {

constexpr std::array<ChipKind, 7> kKinds{{
    {0x0400, 0, 1, false, false, 0},    // FT232BM
    {0x0500, 4, 2, false, false, 0},    // FT2232C, FT2232D
    {0x0600, 5, 1, false, true, 128},   // FT232R
    {0x0700, 6, 2, true, false, 0},     // FT2232H
    {0x0800, 7, 4, true, false, 0},     // FT4232H
    {0x0900, 8, 1, true, false, 0},     // FT232H
    {0x1000, 9, 1, false, false, 256},  // FT-X series
}};

}  // namespace

const ChipKind* KindOf(uint16_t release) {
  const auto* const kind = std::ranges::find(kKinds, release, &ChipKind::release);
  return kind != kKinds.end() ? kind : nullptr;
}

bool IsSame(const Channel& one, const Channel& other) {
  return one.bus == other.bus && one.address == other.address && one.number == other.number &&
         one.serialNumber == other.serialNumber;
}

}  // namespace qvusb
