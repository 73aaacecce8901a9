#pragma once

#include "sim/ftdi/chip_text.h"
#include "sim/responder.h"

namespace qvsim {

/// The device that is connected to a chip.
MakeResponder DeviceOf(const ChipDescription& chip);

}  // namespace qvsim
