#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "terminal/text.h"

namespace qvio_tool {

inline constexpr std::string_view kSerialWord = "serial:";

/// The arguments of every command that opens a channel.
struct ChannelOptions {
  std::string locator;
  std::vector<std::string> lines;
  bool hex = false;
  std::string eol = "\n";  ///< the bytes

  [[nodiscard]] bool isSerial() const { return locator.starts_with(kSerialWord); }

  /// The device file of a serial locator.
  [[nodiscard]] std::string serialPath() const { return locator.substr(kSerialWord.size()); }

  /// The option text for the library.
  [[nodiscard]] std::string text() const {
    std::string text;
    for (const auto& line : lines) text += line + '\n';
    return text;
  }

  /// The value of the first line "KEY VALUE" with this key; empty for a line with only the key.
  [[nodiscard]] std::optional<std::string> value(std::string_view key) const {
    std::istringstream given(text());
    for (std::string line; std::getline(given, line);) {
      std::istringstream words(line);
      std::string first;
      std::string value;
      words >> first >> value;
      if (first == key) return value;
    }
    return {};
  }

  void addTo(CLI::App& command) {
    command.add_option("locator", locator, "The device, as serial:PATH or network:HOST:PORT")->required();
    command.add_option("-o,--option", lines, "Option for the library, as \"KEY VALUE\"; may be repeated")
        ->take_all()
        ->allow_extra_args(false);
    command.add_flag("--hex", hex, "Read and print bytes as hexadecimal");
    command
        .add_option_function<std::string>(
            "--eol", [this](const std::string& word) { eol = kLineEnds.at(word); },
            "Line end to send after each line: none, lf, cr or crlf; default lf")
        ->check(CLI::IsMember(kLineEnds));
  }
};

}  // namespace qvio_tool
