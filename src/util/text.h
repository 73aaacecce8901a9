#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cppu {

/// The text without the characters of `set` at both ends.
inline std::string_view Trim(std::string_view text, std::string_view set = " \t\r\n") {
  const auto first = text.find_first_not_of(set);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(set) - first + 1);
}

/// All pieces between separators, empty ones included; a text without separator is one piece.
inline std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const auto end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

/// The texts with the separator between every two.
template <class Texts>
std::string Join(const Texts& texts, char separator) {
  std::string joined;
  bool first = true;
  for (const auto& text : texts) {
    if (!first) joined += separator;
    first = false;
    joined += text;
  }
  return joined;
}

}  // namespace cppu
