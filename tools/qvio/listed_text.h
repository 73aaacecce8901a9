#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "quorvio/quorvio.h"
#include "result_text.h"

namespace qvio_tool {

/// A text that the library hands out by the listing rule.
/// @param call  calls the function with the buffer and its size; repeated while the buffer is too small
/// Throws CommandFailure.
template <class Call>
std::string ListedText(std::size_t expectedSize, Call call) {
  std::string text(expectedSize, '\0');
  for (;;) {
    std::size_t size = text.size();
    const uint32_t result = call(text.data(), &size);
    text.resize(size);
    if (result == QV_IO_OK) return text;
    if (result != QV_IO_ERROR_BUFFER_TOO_SMALL) throw CommandFailure(FailureText());
  }
}

}  // namespace qvio_tool
