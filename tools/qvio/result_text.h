#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "exit_status.h"

namespace qvio_tool {

/// What ends a command with an exit status, 1 if not said otherwise; its text is told after "qvio: ".
class CommandFailure : public std::runtime_error {
 public:
  explicit CommandFailure(const std::string& text, ExitStatus status = Refused)
      : std::runtime_error(text), status_(status) {}
  [[nodiscard]] ExitStatus status() const noexcept { return status_; }

 private:
  ExitStatus status_;
};

/// "connection lost (result 7)".
std::string ResultText(uint32_t result);

/// Why an open failed and what helps, in one line.
/// @param options  the option text that was given to the library
std::string ExplainOpenFailure(uint32_t result, const std::string& locator, const std::string& options);

/// The same for a failed send.
std::string ExplainSendFailure(uint32_t result, const std::string& locator);

/// The same for a failed listing.
std::string ExplainListFailure(uint32_t result);

}  // namespace qvio_tool
