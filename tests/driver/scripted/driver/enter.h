#pragma once

#include <cstdint>
#include <string_view>

#include "driver/fake_machine.h"

namespace qvusb {

/// For the driver with simulated chips.
inline uint32_t Enter(std::string_view function) { return qvtest::TheMachine().script.enter(function); }

}  // namespace qvusb
