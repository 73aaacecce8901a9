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

/// What a "%" in the text of a reason stands for: a text or a number. It refers to its text and formats
/// nothing, so that the values of a condition that holds cost nothing.
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

/// What was wrong, in plain words for whoever called. Holds its text itself and cuts off what does not fit,
/// so that nothing can fail while it is made, copied or kept.
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
// Kept for each thread: a destructor of it would keep the library from being unloaded.
static_assert(std::is_trivially_destructible_v<Reason> && std::is_nothrow_copy_constructible_v<Reason>);

/// A foreseen failure: the result code that the application gets, and the reason.
class Failure : public std::exception {
 public:
  /// The reason as Reason makes it.
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

/// Why the last failing call on this thread failed: what ResultOf last kept. Empty before the first failure;
/// the text is valid until the next one.
std::string_view LastFailureReason() noexcept;

/// Runs an action that returns a result code or nothing (QV_IO_OK) and turns what it throws into a code: a
/// Failure gives its own, an OptionsError QV_IO_ERROR_INVALID_ARGUMENT, anything else
/// QV_IO_ERROR_DRIVER_FAILURE. The reason is kept for LastFailureReason(). A code that the action returns
/// comes from a ResultOf inside, which has kept the reason already. No exception passes into the application;
/// only the forced unwinding of a thread that is being ended must, since swallowing it aborts the process.
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
