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

/// The text, and on a second line what to do next if the hint says so.
std::string WithHint(const std::string& text, const std::string& hint);

/// Why the library's last failed call on this thread has failed.
std::string FailureText();

/// The same after an open with these arguments, and what to do next.
std::string OpenFailureText(uint32_t result, const std::string& locator, const std::string& options);

}  // namespace qvio_tool
