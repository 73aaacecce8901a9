#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "quorvio/quorvio.h"
#include "util/forced_unwind.h"

namespace qvio {

/// Rejected option text.
class OptionsError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The value of one "%" in the text of a reason: a text or a number. It refers to its text and formats
/// nothing, so a check that passes does not pay for its values.
class ReasonValue {
 public:
  ReasonValue(const char* text) noexcept : ReasonValue(std::string_view(text)) {}
  ReasonValue(const std::string& text) noexcept : ReasonValue(std::string_view(text)) {}
  ReasonValue(std::string_view text) noexcept
      : text_(text.empty() ? "" : text.data()), sizeOrNumber_(text.size()) {}
  template <std::unsigned_integral Number>
  ReasonValue(Number number) noexcept : sizeOrNumber_(number) {}

 private:
  friend class Reason;
  const char* text_ = nullptr;  ///< null: a number
  uint64_t sizeOrNumber_;
};
using ReasonValues = std::initializer_list<ReasonValue>;

/// Why something failed, in plain words for the caller. Its text has a fixed size and is cut to fit, so
/// making, copying or keeping one cannot fail.
class Reason {
 public:
  static constexpr std::size_t kLongest = 199;

  constexpr Reason() = default;

  /// @param format  each "%" in it is replaced by the next value
  /// @param error   an errno whose text follows, as in "cannot open /dev/x: Permission denied"; 0: none
  explicit Reason(std::string_view format, ReasonValues values = {}, int error = 0) noexcept;

  [[nodiscard]] const char* text() const noexcept { return text_.data(); }
  [[nodiscard]] std::string_view view() const noexcept { return {text_.data(), size_}; }

 private:
  void append(std::string_view text) noexcept;
  void appendValue(const ReasonValue& value) noexcept;

  std::array<char, kLongest + 1> text_{};  ///< ends with a zero
  std::size_t size_ = 0;
};
// Each thread keeps one: with a destructor it would prevent the library from being unloaded.
static_assert(std::is_trivially_destructible_v<Reason> && std::is_nothrow_copy_constructible_v<Reason>);

/// A foreseen failure: the result code that the application gets, and the reason.
class Failure : public std::exception {
 public:
  /// The parameters of the reason are those of Reason.
  explicit Failure(uint32_t code, std::string_view format, ReasonValues values = {}, int error = 0) noexcept
      : code_(code), reason_(format, values, error) {}

  [[nodiscard]] uint32_t code() const noexcept { return code_; }
  [[nodiscard]] const char* what() const noexcept override { return reason_.text(); }

 private:
  uint32_t code_;
  Reason reason_;
};

/// Throws the failure.
[[noreturn]] void Fail(uint32_t code, const char* format, ReasonValues values = {}, int error = 0);

/// Throws the failure unless the condition holds.
inline void Require(bool condition, uint32_t code, const char* format, ReasonValues values = {},
                    int error = 0) {
  if (!condition) Fail(code, format, values, error);
}

/// The result code of the exception that is being handled; keeps its reason.
uint32_t CurrentExceptionResult() noexcept;

/// Why the last failing call on this thread failed. Empty before the first failure; valid until the next one.
std::string_view LastFailureReason() noexcept;

/// Runs an action that returns a result code or nothing (QV_IO_OK) and turns what it throws into a code: a
/// Failure gives its own, an OptionsError QV_IO_ERROR_INVALID_ARGUMENT, anything else
/// QV_IO_ERROR_DRIVER_FAILURE. The reason is kept for LastFailureReason(). A code that the action returns
/// comes from a ResultOf inside it, which has kept the reason already. No exception passes into the
/// application. Forced unwinding must pass, because swallowing it aborts the process.
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
