#include "util/number.h"

#include <array>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "util/lookup.h"

namespace cppu {

uint32_t ToUint32(const std::string& text) {
  // std::stoul reads "-1" as the largest number.
  const auto first = text.find_first_not_of(" \t\n\v\f\r");
  if (first != std::string::npos && text[first] == '-') throw std::invalid_argument("Negative number");
  const auto value = std::stoul(text);
  if (value > std::numeric_limits<uint32_t>::max()) throw std::out_of_range("Number above 32 bits");
  return static_cast<uint32_t>(value);
}

bool ToBool(const std::string& text) {
  static constexpr std::array<std::pair<std::string_view, bool>, 7> kLiterals{{{"", true},
                                                                               {"true", true},
                                                                               {"on", true},
                                                                               {"1", true},
                                                                               {"false", false},
                                                                               {"off", false},
                                                                               {"0", false}}};
  if (const auto* const value = Lookup(kLiterals, text)) return *value;
  throw std::invalid_argument("Invalid boolean literal");
}

}  // namespace cppu
