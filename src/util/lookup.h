#pragma once

#include <algorithm>
#include <utility>

namespace cppu {

/// The value of a key in a table of pairs; null when it has no such key.
template <class Table, class Key>
auto* Lookup(const Table& table, const Key& key) {
  const auto found = std::ranges::find_if(table, [&](const auto& row) { return row.first == key; });
  return found == std::ranges::end(table) ? nullptr : &found->second;
}

/// Whether a filter accepts the value: it is in the list, or the list is empty.
template <class List, class Value>
bool Allows(const List& list, const Value& value) {
  return std::ranges::empty(list) || std::ranges::find(list, value) != std::ranges::end(list);
}

}  // namespace cppu
