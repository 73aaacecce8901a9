#pragma once

#include <array>
#include <string_view>

#include "io/ftdi/d2xx.h"
#include "io/ftdi/link_settings.h"

namespace qvio {

struct Product {
  std::string_view description;  ///< in the chip
  LinkSettings settings;         ///< of a chip that came before the configuration in the EEPROM
};

/// The products that have a chip. The udev rules are made from this table too: packaging/CMakeLists.txt reads
/// one product from each line.
inline constexpr std::array<Product, 4> kProducts{{
    {"Quorvi DRV-I", {500000, d2xx::kFlowNone}},
    {"Quorvi DRV2", {12000000, d2xx::kFlowRtsCts}},
    {"Quorvi Sensor", {}},
    {"Quorvi AXU-3D", {500000, d2xx::kFlowNone}},
}};

}  // namespace qvio
