#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace qvio_tool {

/// What a program prints on standard output. None if it is not installed, fails or is not done in time; then
/// it is killed. Looks in the folders of administrators' programs too.
std::optional<std::string> OutputOf(const std::vector<std::string>& command, std::chrono::milliseconds limit);

}  // namespace qvio_tool
