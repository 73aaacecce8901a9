#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace qvio_tool {

/// What ends a command with exit status 1; its text is told after "qvio: ".
class CommandFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// "connection lost (result 7)".
std::string ResultText(uint32_t result);

/// Why an open failed and what helps, in one line.
/// @param options  the option text that was given to the library
std::string ExplainOpenFailure(uint32_t result, const std::string& locator, const std::string& options);

/// The same for a failed send.
std::string ExplainSendFailure(uint32_t result, const std::string& locator);

}  // namespace qvio_tool
