#pragma once

#include <cstdint>
#include <string_view>

#include "driver/status.h"

namespace qvusb {

/// The first step of every exported function; its status, unless OK, is that of the call. The tests have
/// another version of this file, which counts the calls and lets them fail.
constexpr uint32_t Enter(std::string_view /*function*/) { return status::kOk; }

}  // namespace qvusb
