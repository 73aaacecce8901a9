#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "quorvio/quorvio.h"
#include "util/forced_unwind.h"

namespace qvio {

/// Rejected option text.
class OptionsError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A foreseen failure with the result code that the application gets.
class Failure : public std::runtime_error {
 public:
  explicit Failure(uint32_t code) : std::runtime_error("result " + std::to_string(code)), code_(code) {}
  [[nodiscard]] uint32_t code() const noexcept { return code_; }

 private:
  uint32_t code_;
};

/// Throws the failure unless the condition holds.
inline void Require(bool condition, uint32_t code) {
  if (!condition) throw Failure(code);
}

/// The result code of the exception that is being handled.
uint32_t CurrentExceptionResult() noexcept;

/// Runs an action that returns a result code or nothing (QV_IO_OK) and turns what it throws into a code: a
/// Failure gives its own, an OptionsError QV_IO_ERROR_INVALID_ARGUMENT, anything else
/// QV_IO_ERROR_DRIVER_FAILURE. No exception passes into the application; only the forced unwinding of a
/// thread that is being ended must, since swallowing it aborts the process.
template <class Action>
uint32_t ResultOf(Action action) {
  try {
    if constexpr (std::is_void_v<std::invoke_result_t<Action>>) {
      action();
      return QV_IO_OK;
    } else {
      return action();
    }
  } catch (...) {
    if (cppu::IsForcedUnwind()) throw;
    return CurrentExceptionResult();
  }
}

}  // namespace qvio
