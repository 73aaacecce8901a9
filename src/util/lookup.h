#pragma once

#include <optional>
#include <ranges>

namespace cppu {

/// The value of a key in a table of pairs; none if it has no such key.
template <std::ranges::forward_range Table, class Key>
constexpr auto Lookup(const Table& table, const Key& key)
    -> std::optional<typename std::ranges::range_value_t<Table>::second_type> {
  for (const auto& [name, value] : table) {
    if (name == key) return value;
  }
  return {};
}

}  // namespace cppu
