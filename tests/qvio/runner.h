#pragma once

#include <string>
#include <vector>

namespace qvtest {

struct Outcome {
  int status;  ///< exit status; 128 + signal when a signal ended it
  std::string output;
  std::string errors;
};

/// Runs qvio with the arguments and this standard input (a pipe) to its end.
Outcome RunQvio(const std::vector<std::string>& arguments, const std::string& input = "");

/// qvio on a terminal of its own.
class TerminalSession {
 public:
  explicit TerminalSession(const std::vector<std::string>& arguments);
  TerminalSession(const TerminalSession&) = delete;
  TerminalSession& operator=(const TerminalSession&) = delete;
  ~TerminalSession();

  void type(const std::string& keys) const;

  /// Whether the text appears on the screen, within the generous limit, after what was seen before.
  [[nodiscard]] bool shows(const std::string& text);

  /// The exit status, once it has ended.
  [[nodiscard]] int waitForEnd();

  [[nodiscard]] int pid() const { return pid_; }
  [[nodiscard]] const std::string& screen() const { return screen_; }

 private:
  [[nodiscard]] bool readMore();

  int terminal_ = -1;
  int pid_ = -1;
  std::string screen_;
  std::size_t seen_ = 0;
};

}  // namespace qvtest
