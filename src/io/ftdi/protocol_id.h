#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "io/ftdi/device_list.h"

namespace qvio {

/// Asks the device on a chip for its protocol id. The chip is opened for that, so it must not be open
/// anywhere; only chips with the maker's mark are written to. None when anything fails.
/// @param index  of the chip in the driver's list
std::optional<uint8_t> AskProtocolId(const D2xxFunctions& functions, const UsbDevice& device,
                                     std::size_t index);

}  // namespace qvio
