#pragma once

#include <initializer_list>
#include <type_traits>

namespace cppu {

/// A set of bits over an enumeration whose values are the bits.
template <class Enum>
class Flags {
 public:
  using Bits = std::underlying_type_t<Enum>;

  constexpr Flags() = default;
  constexpr Flags(std::initializer_list<Enum> flags) {
    for (const auto flag : flags) set(flag);
  }

  constexpr void set(Enum flag) { bits_ = static_cast<Bits>(bits_ | static_cast<Bits>(flag)); }
  [[nodiscard]] constexpr bool has(Enum flag) const { return (bits_ & static_cast<Bits>(flag)) != 0; }
  [[nodiscard]] constexpr bool empty() const { return bits_ == 0; }

  friend constexpr bool operator==(Flags, Flags) = default;

 private:
  Bits bits_ = 0;
};

}  // namespace cppu
