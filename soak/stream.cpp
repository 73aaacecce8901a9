#include "stream.h"

#include <algorithm>

namespace qvsoak {
namespace {

constexpr uint64_t kSearched = 1U << 20U;  ///< bytes before and after the place where a piece is looked for
constexpr std::size_t kRecognized = 12;    ///< bytes that are enough to know a place by

/// The finisher of splitmix64: neighbouring numbers give unrelated ones.
uint64_t Mix(uint64_t number) {
  number = (number ^ (number >> 30U)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27U)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31U);
}

}  // namespace

uint8_t Stream::at(uint64_t position) const {
  return static_cast<uint8_t>(Mix(seed_ + (position / 8 + 1) * 0x9E3779B97F4A7C15U) >> (position % 8 * 8));
}

void Stream::fill(std::span<uint8_t> bytes, uint64_t position) const {
  for (auto& byte : bytes) byte = at(position++);
}

std::size_t Stream::matching(std::span<const uint8_t> bytes, uint64_t position) const {
  const auto wrong = std::ranges::find_if(bytes, [&](uint8_t byte) { return byte != at(position++); });
  return static_cast<std::size_t>(wrong - bytes.begin());
}

std::string Stream::explain(std::span<const uint8_t> bytes, uint64_t position) const {
  const auto where = " at byte " + std::to_string(position);
  const auto known = bytes.first(std::min(bytes.size(), kRecognized));
  for (uint64_t away = 1; away < kSearched; ++away) {
    if (matching(known, position + away) == known.size())
      return std::to_string(away) + " bytes lost or overtaken" + where;
    if (away <= position && matching(known, position - away) == known.size())
      return "bytes from " + std::to_string(away) + " before came again" + where;
  }
  return "foreign bytes" + where;
}

}  // namespace qvsoak
