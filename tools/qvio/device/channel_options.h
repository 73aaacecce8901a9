#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "terminal/received_text.h"

namespace qvio_tool {

inline constexpr std::string_view kSerialWord = "serial:";
inline constexpr const char* kLocatorHelp =
    "The device: serial:PATH, network:HOST:PORT, network:sn:SERIAL or usb:sn:SERIAL; in short /dev/ttyUSB0 "
    "or "
    "HOST:PORT; or its name in qvio.toml";

/// The arguments of every command that opens a channel.
struct ChannelOptions {
  std::string locator;
  std::vector<std::string> lines;   ///< of --option
  std::vector<std::string> ifaces;  ///< where a serial number is searched for; empty: everywhere
  uint32_t searchMs = 1000;         ///< for that search
  bool hex = false;
  std::string eol = "\n";   ///< the bytes
  std::string eolWord;      ///< as given, empty: not given
  std::string baud;         ///< short for the option baudrate; empty: not given
  bool reconnects = false;  ///< a lost device is waited for

  [[nodiscard]] Form form() const { return hex ? Form::Hex : Form::Text; }

  [[nodiscard]] bool isSerial() const { return locator.starts_with(kSerialWord); }

  /// The device file of a serial locator.
  [[nodiscard]] std::string serialPath() const { return locator.substr(kSerialWord.size()); }

  /// The option text for the library.
  [[nodiscard]] std::string text() const;

  /// The value of the first line "KEY VALUE" with this key; empty for a line with only the key.
  [[nodiscard]] std::optional<std::string> value(std::string_view key) const;

  /// Adds the arguments to a command. When they are parsed, names and short forms of devices are replaced,
  /// and a mistyped locator or option, which the library might ignore, is CommandFailure with WrongUsage.
  void addTo(CLI::App& command);

  /// The same, for a command that lets the user choose the locators: without the locator, and completed by
  /// `complete` for each.
  void addLinkTo(CLI::App& command);

  /// Adds --reconnect, for commands that are kept open.
  void addReconnectTo(CLI::App& command);

  /// What happens to each locator when the arguments are parsed. Throws CommandFailure.
  void complete();

 private:
  void requireSound() const;
};

}  // namespace qvio_tool
