#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace qvsim {

/// The properties of one simulated chip and of the device connected to it.
struct ChipDescription {
  enum class Link { Protocol, Echo };

  std::string description;   ///< at most 64 characters
  std::string serialNumber;  ///< at most 16 characters
  uint32_t vendorId = 0x0403;
  uint32_t productId = 0x6001;
  uint32_t type = 5;
  uint32_t flags = 0;
  uint32_t location = 0;
  std::optional<uint32_t> chipId;  ///< nothing: it cannot be read
  std::string userArea;
  Link link = Link::Protocol;
  std::optional<uint8_t> protocolId;  ///< nothing: no identity exchange
  bool held = false;                  ///< open in another process
};

/// Why a text describes no chips; what() names the line.
class BadChipText : public std::runtime_error {
 public:
  BadChipText(std::size_t line, const std::string& reason)
      : std::runtime_error("line " + std::to_string(line) + ": " + reason) {}
};

/// One chip a line, as README.md has it. Throws BadChipText.
std::vector<ChipDescription> ReadChips(std::string_view text);

/// One chip of each product.
extern const char* const kDefaultChips;

}  // namespace qvsim
