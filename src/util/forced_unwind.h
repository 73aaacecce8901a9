#pragma once

#include <exception>

namespace cppu {

/// To be asked in `catch (...)`: whether the stack is being unwound by pthread_exit or pthread_cancel. That
/// must be thrown on, since swallowing it aborts the process. Such an unwinding is no exception of C++, so
/// there is none.
inline bool IsForcedUnwind() noexcept { return std::current_exception() == nullptr; }

}  // namespace cppu
