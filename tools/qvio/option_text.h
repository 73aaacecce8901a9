#pragma once

#include <optional>
#include <sstream>
#include <string>
#include <string_view>

namespace qvio_tool {

inline constexpr std::string_view kSerialWord = "serial:";

/// The device file of a serial locator.
inline std::string SerialPath(std::string_view locator) {
  return std::string(locator.substr(kSerialWord.size()));
}

/// The value of the first line "KEY VALUE" with this key; empty for a line with only the key.
inline std::optional<std::string> OptionValue(const std::string& options, std::string_view key) {
  std::istringstream lines(options);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string first;
    std::string value;
    words >> first >> value;
    if (first == key) return value;
  }
  return {};
}

}  // namespace qvio_tool
