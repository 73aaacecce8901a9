#include "driver/divisor.h"

#include <array>

namespace qvusb {
namespace {

constexpr uint64_t kClock = 3'000'000;
constexpr uint64_t kFastClock = 12'000'000;
constexpr uint32_t kSlowestOfFastClock = 1200;
constexpr uint32_t kFastClockBit = 0x20000;
constexpr uint64_t kEighths = 8;
constexpr uint64_t kLargest = 0x3FFF * kEighths + 7;
constexpr std::array<uint32_t, kEighths> kFractions{0, 3, 2, 4, 1, 5, 6, 7};
constexpr unsigned kFractionShift = 14;

/// Between one and two only one and a half exists.
uint64_t Nearest(uint64_t eighths) {
  if (eighths < 10) return 8;
  if (eighths < 14) return 12;
  return eighths < 16 ? 16 : eighths;
}

/// One and one and a half have codes of their own.
uint32_t Encode(uint64_t eighths) {
  if (eighths == 8) return 0;
  if (eighths == 12) return 1;
  return static_cast<uint32_t>(eighths / kEighths) | kFractions.at(eighths % kEighths) << kFractionShift;
}

bool IsClose(uint64_t actual, uint64_t wanted) {
  const auto difference = actual > wanted ? actual - wanted : wanted - actual;
  return difference * 100 <= wanted * 3;
}

}  // namespace

std::optional<Divisor> DivisorFor(uint32_t baud, bool isHighSpeed) {
  const bool isFast = isHighSpeed && baud >= kSlowestOfFastClock;
  const auto clock = (isFast ? kFastClock : kClock) * kEighths;
  if (baud == 0 || baud > clock / kEighths) return {};
  const auto eighths = Nearest((clock + baud / 2) / baud);
  if (eighths > kLargest || !IsClose(clock / eighths, baud)) return {};
  const auto code = Encode(eighths) | (isFast ? kFastClockBit : 0);
  return Divisor{static_cast<uint16_t>(code), static_cast<uint16_t>(code >> 16U)};
}

}  // namespace qvusb
