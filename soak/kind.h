#pragma once

#include <array>
#include <string>

namespace qvsoak {

enum class Kind { Usb, Serial, Tcp };

inline constexpr std::array kKinds{Kind::Usb, Kind::Serial, Kind::Tcp};

inline std::string NameOf(Kind kind) {
  constexpr std::array kNames{"USB", "terminal", "TCP"};
  return kNames.at(static_cast<std::size_t>(kind));
}

}  // namespace qvsoak
