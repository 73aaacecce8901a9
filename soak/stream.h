#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qvsoak {

/// Endless bytes in which every place looks different, so that each byte that is lost, duplicated or out of
/// order is noticed where it happens, and nothing has to be stored.
class Stream {
 public:
  explicit Stream(uint64_t seed) : seed_(seed) {}

  [[nodiscard]] std::string bytes(uint64_t position, std::size_t size) const {
    std::string text(size, '\0');
    for (auto& byte : text) byte = at(position++);
    return text;
  }

  /// What is wrong with bytes that were received as those of the position; nothing if they are right.
  [[nodiscard]] std::optional<std::string> faultOf(std::string_view bytes, uint64_t position) const {
    const auto right = matching(bytes, position);
    if (right == bytes.size()) return {};
    return explain(bytes.substr(right, kRecognized), position + right);
  }

 private:
  static constexpr uint64_t kSearched = 1U
                                        << 20U;   ///< bytes before and after the place where they are sought
  static constexpr std::size_t kRecognized = 12;  ///< bytes that identify a place

  /// The finisher of splitmix64: neighbouring numbers give unrelated ones.
  static uint64_t mix(uint64_t number) {
    number = (number ^ (number >> 30U)) * 0xBF58476D1CE4E5B9U;
    number = (number ^ (number >> 27U)) * 0x94D049BB133111EBU;
    return number ^ (number >> 31U);
  }

  [[nodiscard]] char at(uint64_t position) const {
    return static_cast<char>(mix(seed_ + (position / 8 + 1) * 0x9E3779B97F4A7C15U) >> (position % 8 * 8));
  }

  [[nodiscard]] std::size_t matching(std::string_view bytes, uint64_t position) const {
    const auto* const wrong = std::ranges::find_if(bytes, [&](char byte) { return byte != at(position++); });
    return static_cast<std::size_t>(wrong - bytes.begin());
  }

  [[nodiscard]] std::string explain(std::string_view bytes, uint64_t position) const {
    const auto where = " at byte " + std::to_string(position);
    for (uint64_t away = 1; away < kSearched; ++away) {
      if (matching(bytes, position + away) == bytes.size())
        return std::to_string(away) + " bytes lost or overtaken" + where;
      if (away <= position && matching(bytes, position - away) == bytes.size())
        return "bytes from " + std::to_string(away) + " before came again" + where;
    }
    return "foreign bytes" + where;
  }

  uint64_t seed_;
};

}  // namespace qvsoak
