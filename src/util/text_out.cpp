#include "util/text_out.h"

#include <cstring>
#include <utility>

#include "util/failure.h"

namespace qvio {
namespace {

/// The reason gives the size to pass, which differs between the two rules for `size`.
void RequireRoom(bool fits, std::string_view text) {
  Require(fits, QV_IO_ERROR_BUFFER_TOO_SMALL, "the text needs a buffer of % bytes", {text.size() + 1});
}

void Copy(std::string_view text, char* buffer) {
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
}

}  // namespace

void HandOutListing(std::string_view text, char* buffer, std::size_t& size) {
  const bool fits = size > text.size();
  size = fits ? text.size() : text.size() + 1;
  RequireRoom(fits, text);
  Copy(text, buffer);
}

void HandOutProperty(std::string_view text, char* buffer, std::size_t& size) {
  const auto capacity = std::exchange(size, text.size());
  if (capacity != 0) buffer[0] = '\0';
  RequireRoom(capacity > text.size(), text);
  Copy(text, buffer);
}

void HandOutNothing(char* buffer, std::size_t& size) noexcept {
  if (size != 0) buffer[0] = '\0';
  size = 0;
}

}  // namespace qvio
