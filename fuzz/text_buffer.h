#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "check.h"
#include "decisions.h"
#include "quorvio/quorvio.h"

namespace qvfuzz {

/// The two rules for the size of texts that are handed out.
enum class SizeRule { Listing, Property };

/// What a function that hands out a text made of a buffer of random size.
struct HandedOut {
  uint32_t result;
  bool badPointers;  ///< there was nothing to write to
  std::string text;  ///< with QV_IO_OK
};

/// Calls the function with a buffer, or null, and looks at what it did to it.
/// @param function  takes a char* and a size_t*
template <class Function>
HandedOut CallForText(Decisions& decisions, SizeRule rule, Function function) {
  constexpr char kUntouched = '\x5A';
  constexpr std::size_t kGuard = 32;
  constexpr std::size_t kAmple = 4096;
  const auto choice = decisions.byte();
  const std::size_t capacity = choice % 4 == 0 ? 0 : choice % 4 == 1 ? decisions.byte() : kAmple;
  const bool noBuffer = choice / 4 % 8 == 1;
  const bool noSize = choice / 32 == 1;
  std::string buffer(capacity + kGuard, kUntouched);
  std::size_t size = capacity;
  const auto result = function(noBuffer ? nullptr : buffer.data(), noSize ? nullptr : &size);

  const auto isUntouched = [&](std::size_t from) {
    return buffer.find_first_not_of(kUntouched, from) == std::string::npos;
  };
  const bool badPointers = noSize || (noBuffer && capacity != 0);
  Check(isUntouched(capacity), "nothing is written after a buffer");
  Check(!badPointers || result != QV_IO_OK, "no text is handed out to nowhere");
  if (result == QV_IO_OK)
    Check(size < capacity && buffer[size] == '\0' && isUntouched(size + 1), "a text ends with its zero");
  if (result != QV_IO_ERROR_BUFFER_TOO_SMALL)
    return {result, badPointers, result == QV_IO_OK ? buffer.substr(0, size) : ""};
  const bool listing = rule == SizeRule::Listing;
  Check(listing ? size > capacity : size >= capacity, "a buffer that is too small learns the size");
  Check(listing ? isUntouched(0) : capacity == 0 || (buffer[0] == '\0' && isUntouched(1)),
        "a buffer that is too small gets nothing, or the empty text");
  return {result, badPointers, ""};
}

}  // namespace qvfuzz
