#pragma once

#include <exception>

namespace cppu {

/// For `catch (...)`: whether pthread_exit or pthread_cancel is unwinding the stack. Such an unwinding must
/// be rethrown, because swallowing it aborts the process. It is not a C++ exception, so there is no current
/// one.
inline bool IsForcedUnwind() noexcept { return std::current_exception() == nullptr; }

}  // namespace cppu
