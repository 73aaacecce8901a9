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
class QvioTerminal {
 public:
  explicit QvioTerminal(const std::vector<std::string>& arguments);
  QvioTerminal(const QvioTerminal&) = delete;
  QvioTerminal& operator=(const QvioTerminal&) = delete;
  ~QvioTerminal();

  void type(const std::string& keys) const;

  /// Whether the text appears on the screen, within the generous limit, after what was seen before.
  [[nodiscard]] bool shows(const std::string& text);

  /// The exit status, once it has ended.
  [[nodiscard]] int waitForEnd();

  [[nodiscard]] int pid() const { return pid_; }
  [[nodiscard]] const std::string& screen() const { return screen_; }

 private:
  [[nodiscard]] bool readMore();

  int master_ = -1;
  int pid_ = -1;
  std::string screen_;
  std::size_t seen_ = 0;
};

}  // namespace qvtest
