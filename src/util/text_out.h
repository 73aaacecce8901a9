#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace cppu {

/// The two rules for handing a text to a caller's buffer of `size` bytes, terminator included. Both return
/// whether the text fitted and set `size` to its length if it did; with a size of 0 the buffer may be null.
/// They differ when it does not fit, which callers of each rule rely on.

/// Listing rule: the buffer stays untouched and `size` becomes the length plus one.
[[nodiscard]] inline bool CopyListing(std::string_view text, char* buffer, std::size_t& size) {
  if (size < text.size() + 1) {
    size = text.size() + 1;
    return false;
  }
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
  size = text.size();
  return true;
}

/// Property rule: the buffer gets the empty text and `size` becomes the length without the terminator.
[[nodiscard]] inline bool CopyProperty(std::string_view text, char* buffer, std::size_t& size) {
  const std::size_t capacity = size;
  size = text.size();
  if (capacity != 0) buffer[0] = '\0';
  if (capacity < text.size() + 1) return false;
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
  return true;
}

}  // namespace cppu
