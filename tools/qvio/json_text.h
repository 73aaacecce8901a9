#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "device.h"

namespace qvio_tool {

/// An object with the keys of the property record; numbers are numbers and `available` is a bool.
nlohmann::ordered_json ToJson(const Device& device);

/// The value as text. Bytes that are no UTF-8 become U+FFFD: devices send what they like.
/// @param indent  below 0: all on one line
std::string JsonText(const nlohmann::ordered_json& value, int indent);

}  // namespace qvio_tool
