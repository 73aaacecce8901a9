#pragma once

#include <stdexcept>
#include <string>

namespace qvio_tool {

/// Exit statuses of every command.
enum ExitStatus { Done = 0, Refused = 1, WrongUsage = 2, TimedOut = 124 };

/// Ends a command with an exit status, 1 by default; main prints its text after "qvio: ".
class CommandFailure : public std::runtime_error {
 public:
  explicit CommandFailure(const std::string& text, ExitStatus status = Refused)
      : std::runtime_error(text), status_(status) {}
  [[nodiscard]] ExitStatus status() const noexcept { return status_; }

 private:
  ExitStatus status_;
};

/// The text and, unless the hint is empty, a second line that says what to do next.
inline std::string WithHint(const std::string& text, const std::string& hint) {
  return hint.empty() ? text : text + "\nqvio: hint: " + hint;
}

}  // namespace qvio_tool
