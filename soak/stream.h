#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace qvsoak {

/// Endless bytes in which every place looks different, so that each byte that is lost, doubled or out of
/// order is seen where it happens, and nothing has to be stored.
class Stream {
 public:
  explicit Stream(uint64_t seed) : seed_(seed) {}

  /// Writes the bytes from this position on.
  void fill(std::span<uint8_t> bytes, uint64_t position) const;

  /// How many bytes from the first on are those of the position.
  [[nodiscard]] std::size_t matching(std::span<const uint8_t> bytes, uint64_t position) const;

  /// What must have happened to these bytes, the first of which is wrong for the position.
  [[nodiscard]] std::string explain(std::span<const uint8_t> bytes, uint64_t position) const;

 private:
  [[nodiscard]] uint8_t at(uint64_t position) const;

  uint64_t seed_;
};

}  // namespace qvsoak
