#ifndef QUORVIO_DETAIL_OPTIONS_HPP
#define QUORVIO_DETAIL_OPTIONS_HPP

#include <string>
#include <string_view>
#include <type_traits>

#include "quorvio/detail/error.hpp"

namespace quorvio {
namespace detail {

/// A text for the C functions, which end it at its first zero byte.
inline std::string textWithout(std::string_view refused, std::string_view text, Errc code) {
  if (text.find_first_of(refused) != std::string_view::npos)
    throw Error(code, "a text holds a zero byte or another character that it must not have");
  return std::string(text);
}

inline constexpr std::string_view kZeroByte("\0", 1);
inline constexpr std::string_view kZeroByteLineFeed("\0\n", 2);
inline constexpr std::string_view kZeroByteBlanks("\0\n\r\t\v\f ", 7);

}  // namespace detail

/** Option texts, one option after the other; the keys are in quorvio.h. A value from outside, such as a
 * product name that a user has typed, cannot smuggle in a further option: line feeds and zero bytes are
 * refused with Errc::invalidArgument. */
class Options {
 public:
  /** Switches a boolean option on. */
  Options& add(std::string_view key) { return add(key, std::string_view()); }

  /** A key may be added more than once where quorvio.h says "may be repeated". */
  Options& add(std::string_view key, std::string_view value) {
    auto line = detail::textWithout(detail::kZeroByteBlanks, key, Errc::invalidArgument);
    if (line.empty()) throw Error(Errc::invalidArgument, "an option without a key");
    const auto checked = detail::textWithout(detail::kZeroByteLineFeed, value, Errc::invalidArgument);
    if (!checked.empty()) line += ' ' + checked;
    if (!text_.empty()) text_ += '\n';
    text_ += line;
    return *this;
  }

  /** A whole number, or true and false. */
  template <class Value, std::enable_if_t<std::is_integral_v<Value>, int> = 0>
  Options& add(std::string_view key, Value value) {
    if constexpr (std::is_same_v<Value, bool>) {
      return add(key, std::string_view(value ? "true" : "false"));
    } else {
      return add(key, std::string_view(std::to_string(value)));
    }
  }

  /** Lines "KEY VALUE" from a trusted source, such as a configuration file. Zero bytes are refused. */
  static Options fromLines(std::string_view lines) {
    Options options;
    options.text_ = detail::textWithout(detail::kZeroByte, lines, Errc::invalidArgument);
    return options;
  }

  /** As the C functions take it. */
  [[nodiscard]] const std::string& text() const noexcept { return text_; }

 private:
  std::string text_;
};

}  // namespace quorvio

#endif
