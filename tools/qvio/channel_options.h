#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "text_codec.h"

namespace qvio_tool {

/// The arguments that every command with a channel takes.
struct ChannelOptions {
  std::string locator;
  std::vector<std::string> lines;
  bool hex = false;
  std::string eol;  ///< the bytes

  /// The option text for the library.
  [[nodiscard]] std::string text() const {
    std::string text;
    for (const auto& line : lines) text += line + '\n';
    return text;
  }

  void addTo(CLI::App& command) {
    command.add_option("locator", locator, "The device, as serial:PATH or network:HOST:PORT")->required();
    command.add_option("-o,--option", lines, "Option for the library, as \"KEY VALUE\"; may be repeated")
        ->take_all()
        ->allow_extra_args(false);
    command.add_flag("--hex", hex, "Take and show bytes as hexadecimal");
  }

  CLI::Option* addLineEnd(CLI::App& command, const std::string& preset) {
    eol = kLineEnds.at(preset);
    return command
        .add_option_function<std::string>(
            "--eol", [this](const std::string& word) { eol = kLineEnds.at(word); },
            "What is sent after a line: none, lf, cr or crlf; " + preset + " if not given")
        ->check(CLI::IsMember(kLineEnds));
  }
};

}  // namespace qvio_tool
