#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "options/options_map.h"
#include "options/property_keys.h"
#include "util/failure.h"
#include "util/number.h"

namespace qvio {

/// An option set is a struct whose members hold the defaults, and one table of keys. The table drives the
/// conversion, which the member's type picks, and the check for unknown keys under `strict`.

/// A key and the member that takes its value. Member types: uint32_t, bool, std::string (the first line with
/// the key counts); std::optional of these (set when the key occurs); std::vector of these (every line
/// with the key, each value once).
template <class Set, class Value>
struct Key {
  std::string_view name;
  Value Set::*member;

  [[nodiscard]] bool knows(std::string_view key) const { return key == name; }
};
template <class Set, class Value>
Key(std::string_view, Value Set::*) -> Key<Set, Value>;

/// One boolean option PREFIX + K for each key K of the tables; the member collects those that are true, in
/// the order of the tables. A key in two tables is one option.
template <class Set, std::size_t TableCount>
struct KeyFamily {
  std::string_view prefix;
  std::array<std::span<const std::string_view>, TableCount> tables;
  Selection Set::*member;

  [[nodiscard]] bool knows(std::string_view key) const {
    if (!key.starts_with(prefix)) return false;
    return std::ranges::any_of(tables, [name = key.substr(prefix.size())](const auto& table) {
      return std::ranges::find(table, name) != table.end();
    });
  }
};
template <class Set, std::size_t TableCount>
KeyFamily(std::string_view, std::array<std::span<const std::string_view>, TableCount>, Selection Set::*)
    -> KeyFamily<Set, TableCount>;

namespace detail {

inline void Convert(const std::string& text, uint32_t& value) { value = cppu::ToUint32(text); }
inline void Convert(const std::string& text, bool& value) { value = cppu::ToBool(text); }
inline void Convert(const std::string& text, std::string& value) { value = text; }
template <class T>
void Convert(const std::string& text, std::optional<T>& value) {
  Convert(text, value.emplace());
}

template <class Value>
void ConvertItem(const cppu::OptionsMap::Item& item, Value& value) {
  try {
    Convert(item.value, value);
  } catch (const std::logic_error&) {  // any other failure, such as bad_alloc, is not the text's fault
    throw OptionsError("Conversion of " + item.key + " failed");
  }
}

template <class Value>
void ReadValue(const cppu::OptionsMap& options, std::string_view key, Value& value) {
  if (const auto* item = options.find(key)) ConvertItem(*item, value);
}

template <class Element>
void ReadValue(const cppu::OptionsMap& options, std::string_view key, std::vector<Element>& list) {
  std::unordered_set<Element> seen;  // the text may have any number of lines
  for (const auto& item : options.items()) {
    if (item.key != key) continue;
    Element element{};
    ConvertItem(item, element);
    if (seen.insert(element).second) list.push_back(std::move(element));
  }
}

template <class Set, class Value>
void ReadKey(const cppu::OptionsMap& options, const Key<Set, Value>& key, Set& set) {
  ReadValue(options, key.name, set.*key.member);
}

template <class Set, std::size_t TableCount>
void ReadKey(const cppu::OptionsMap& options, const KeyFamily<Set, TableCount>& family, Set& set) {
  auto& selected = set.*family.member;
  for (const auto& table : family.tables) {
    for (const auto key : table) {
      bool on = false;
      ReadValue(options, std::string(family.prefix).append(key), on);
      if (on) selected.insert(std::string(key));
    }
  }
}

/// Whether all of a number is digits: the readers ignore what follows them.
template <class Set, class Value>
bool IsExact(const cppu::OptionsMap::Item& item, const Key<Set, Value>& key) {
  constexpr bool kIsNumber = std::is_same_v<Value, uint32_t> ||
                             std::is_same_v<Value, std::optional<uint32_t>> ||
                             std::is_same_v<Value, std::vector<uint32_t>>;
  return !kIsNumber || item.key != key.name ||
         item.value.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace detail

/// Throws OptionsError for a text that people would not mean: an unknown key, or a number with something
/// after its digits.
template <class... Keys>
void RequireExact(std::string_view text, const std::tuple<Keys...>& table) {
  const cppu::OptionsMap options(text);
  for (const auto& item : options.items()) {
    const auto known = std::apply([&](const auto&... key) { return (key.knows(item.key) || ...); }, table);
    const auto exact =
        std::apply([&](const auto&... key) { return (detail::IsExact(item, key) && ...); }, table);
    if (!known) throw OptionsError("Unknown option: " + item.key);
    if (!exact) throw OptionsError("not a number: " + item.key + ' ' + item.value);
  }
}

/// Reads an option text by the table of a set, in the table's order. Throws OptionsError when a value cannot
/// be converted or, under `strict`, a key is unknown.
template <class Set, class... Keys>
Set ReadOptions(std::string_view text, const std::tuple<Keys...>& table) {
  const cppu::OptionsMap options(text);
  Set set;
  std::apply([&](const auto&... key) { (detail::ReadKey(options, key, set), ...); }, table);
  if (!set.strict) return set;
  for (const auto& item : options.items()) {
    const auto known = std::apply([&](const auto&... key) { return (key.knows(item.key) || ...); }, table);
    if (!known) throw OptionsError("Unknown option: " + item.key);
  }
  return set;
}

}  // namespace qvio
