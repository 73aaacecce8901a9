#pragma once

#include <cstdint>
#include <string>

namespace cppu {

/// Reads decimal text as std::stoul does (leading blanks, digits, anything after them), but without wrapping
/// a negative number around. Throws std::invalid_argument (no number, a minus sign) or std::out_of_range
/// (above 4294967295).
uint32_t ToUint32(const std::string& text);

/// "", "true", "on", "1" are true, "false", "off", "0" are false; anything else throws std::invalid_argument
/// with "Invalid boolean literal". Empty is true so that an option line with only a key switches a flag on.
bool ToBool(const std::string& text);

}  // namespace cppu
