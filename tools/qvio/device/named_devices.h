#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qvio_tool {

/// A device that the user has given a name in qvio.toml:
///
///     [stage]
///     locator = "/dev/ttyUSB0"
///     options = ["baudrate 115200"]
///     eol = "crlf"
struct NamedDevice {
  std::string locator;
  std::vector<std::string> options;  ///< "KEY VALUE"
  std::string eol;                   ///< a word of --eol; empty: not given
};

/// The file: $XDG_CONFIG_HOME/qvio.toml, or ~/.config/qvio.toml.
std::string DevicesFile();

/// All names in the file.
std::set<std::string> DeviceNames();

/// The device with this name; none if the file, or the name in it, does not exist. Throws CommandFailure with
/// WrongUsage for a table that cannot be read.
std::optional<NamedDevice> FindNamedDevice(const std::string& name);

}  // namespace qvio_tool
