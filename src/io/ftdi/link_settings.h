#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace qvio {

/// How a chip's line is run.
struct LinkSettings {
  uint32_t lineSpeed = 0;    ///< baud; 0: none is known
  uint16_t flowControl = 0;  ///< the driver's value, d2xx::kFlow…
  bool fifo = false;         ///< synchronous FIFO instead of a serial line

  friend bool operator==(const LinkSettings&, const LinkSettings&) = default;
};

/// What is known of a chip when it is opened.
struct ChipTraits {
  std::span<const uint8_t>
      userArea;                  ///< of its EEPROM, where the maker may have left the link's configuration
  std::string_view description;  ///< as the driver gives it
  bool isHighSpeedDualChannel;
};

/// The settings by the maker's configuration, else by the kind of chip, else by the product's description.
/// Options of the user override them, except for the mode, which depends on the chip alone.
LinkSettings ChooseLinkSettings(const ChipTraits& chip, std::optional<uint32_t> lineSpeed,
                                std::optional<uint16_t> flowControl);

/// Whether the maker has left a configuration in the user area.
bool HasMakersMark(std::span<const uint8_t> userArea);

}  // namespace qvio
