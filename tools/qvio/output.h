#pragma once

#include <string_view>

namespace qvio_tool {

/// Writes all to standard output or standard error. Throws CommandFailure when it takes no more.
void WriteAll(int fd, std::string_view bytes);

}  // namespace qvio_tool
