#ifndef QUORVIO_DETAIL_TEXT_OUT_HPP
#define QUORVIO_DETAIL_TEXT_OUT_HPP

#include <cstddef>
#include <cstdint>
#include <string>

#include "quorvio/detail/error.hpp"

namespace quorvio::detail {

/// The text of a C function that writes into a buffer; both rules for the size. Asks again until the text
/// fits, since it may grow in between.
/// @param size  for which there is room at first
template <class Write>
std::string textOut(const std::string& what, Write write, std::size_t size = 4096) {
  std::string text;
  for (;;) {
    text.resize(size);
    const uint32_t result = write(text.data(), &size);
    if (result == QV_IO_ERROR_BUFFER_TOO_SMALL) {
      size = 2 * (size + 1);
      continue;
    }
    check(result, what);
    text.resize(size);
    return text;
  }
}

}  // namespace quorvio::detail

#endif
