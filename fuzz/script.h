#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "util/bytes.h"

namespace qvfuzz {

/// Reads an input as a row of decisions. Behind its end every decision is 0 and every text empty.
class Script {
 public:
  explicit Script(std::span<const uint8_t> input) : in_(input) {}

  [[nodiscard]] bool ended() const { return in_.rest().empty(); }

  uint8_t byte() { return in_.le<uint8_t>(); }
  uint32_t number() { return in_.le<uint32_t>(); }
  bool flag() { return (byte() & 1U) != 0; }

  /// From 0 to count - 1; count is 1 to 256.
  std::size_t below(std::size_t count) { return byte() % count; }

  /// Up to 255 bytes behind their number.
  std::string_view text() { return in_.text(std::min<std::size_t>(byte(), in_.rest().size())); }

  template <class Table>
  const auto& oneOf(const Table& table) {
    return table[below(std::size(table))];
  }

 private:
  cppu::ByteReader in_;
};

/// The input as an application would pass it: a text ends at its first zero.
inline std::string_view ZeroTerminated(std::span<const uint8_t> input) {
  const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
  return text.substr(0, text.find('\0'));
}

}  // namespace qvfuzz
