#pragma once

#include <cstddef>
#include <string_view>

namespace qvio {

/// The two rules for handing a text to a caller's buffer of `size` bytes, terminator included. Both set
/// `size` to the length of a text that fits, and throw Failure with QV_IO_ERROR_BUFFER_TOO_SMALL for one that
/// does not; then they differ, and callers of each rule rely on that. With a size of 0 the buffer may be
/// null.

/// When the text does not fit: the buffer stays untouched and `size` becomes the length plus one.
void HandOutListing(std::string_view text, char* buffer, std::size_t& size);

/// When the text does not fit: the buffer gets the empty text and `size` becomes the length.
void HandOutProperty(std::string_view text, char* buffer, std::size_t& size);

/// Hands out the empty text where there is none; never fails, even with a size of 0.
void HandOutNothing(char* buffer, std::size_t& size) noexcept;

}  // namespace qvio
