#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "util/bytes.h"

namespace qvfuzz {

/// Reads an input as a row of decisions. After its end every decision is 0 and every text empty.
class Decisions {
 public:
  explicit Decisions(std::span<const uint8_t> input) : in_(input) {}

  [[nodiscard]] bool ended() const { return in_.rest().empty(); }

  uint8_t byte() { return in_.le<uint8_t>(); }
  uint32_t number() { return in_.le<uint32_t>(); }
  bool flag() { return (byte() & 1U) != 0; }

  /// From 0 to count - 1; count is 1 to 256.
  std::size_t below(std::size_t count) { return byte() % count; }

  /// Up to 255 bytes, after their number.
  std::string_view text() { return in_.text(std::min<std::size_t>(byte(), in_.rest().size())); }

  template <class Table>
  const auto& oneOf(const Table& table) {
    return table[below(std::size(table))];
  }

 private:
  cppu::ByteReader in_;
};

}  // namespace qvfuzz
