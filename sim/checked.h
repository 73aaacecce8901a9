#pragma once

#include <cerrno>
#include <system_error>

namespace qvsim {

/// The result of a system call; throws std::system_error, with the name of what was tried, if it failed.
inline int Checked(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

}  // namespace qvsim
