#pragma once

#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

#include "util/unique_fd.h"

namespace cppu {

/// An eventfd, which never blocks. Throws std::system_error when there is no descriptor left.
inline UniqueFd MakeEvent() {
  auto event = AboveStandardStreams(UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)));
  if (!event) throw std::system_error(errno, std::generic_category(), "cannot create an event");
  return event;
}

}  // namespace cppu
