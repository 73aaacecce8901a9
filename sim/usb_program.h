#pragma once

#include <string>
#include <vector>

namespace qvsim {

/// Turns this process into a program that finds the stand-in for FTDI's driver instead of FTDI's libraries.
/// Returns only when that fails: an exit status as shells have it, 127 if the program does not exist, else
/// 126. Throws std::runtime_error if the stand-in is not installed.
/// @param chips  file with the chips; empty: one of each product
int RunWithUsbChips(const std::vector<std::string>& command, const std::string& chips);

}  // namespace qvsim
