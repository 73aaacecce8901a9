#pragma once

#include <cstdint>
#include <optional>

namespace qvusb {

/// A line speed as the chip takes it: the low 16 bits and the rest.
struct Divisor {
  uint16_t low = 0;
  uint16_t high = 0;

  friend bool operator==(const Divisor&, const Divisor&) = default;
};

/// The chip divides a clock in steps of an eighth. None for a speed that it misses by more than 3 %.
std::optional<Divisor> DivisorFor(uint32_t baud, bool isHighSpeed);

}  // namespace qvusb
