#pragma once

#include <array>
#include <string>
#include <vector>

#include "util/unique_fd.h"

namespace qvtest {

using Words = std::vector<std::string>;

struct Outcome {
  int status;  ///< exit status; 128 + signal when a signal ended it
  std::string output;
  std::string errors;
};

/// Runs qvio with the arguments and this standard input to its end.
Outcome RunQvio(const Words& words, const std::string& input = "");

/// What a run gives: its status, and a text on standard output or standard error.
struct Expected {
  Words words;
  int status;
  std::string text;
};
void ExpectText(const Expected& expected);

/// A file in memory, at its beginning.
cppu::UniqueFd FileOf(const std::string& content);
std::string ContentOf(const cppu::UniqueFd& file);

/// The reading and the writing end.
std::array<cppu::UniqueFd, 2> MakePipe();

/// Whether writing to the descriptor would block, within the generous limit.
[[nodiscard]] bool BecomesFull(int fd);

/// Descriptors in place of the terminal; below 0: the terminal.
struct Redirected {
  int output = -1;
  int errors = -1;
};

/// qvio on a terminal of its own, 100 columns wide.
class QvioTerminal {
 public:
  explicit QvioTerminal(const Words& arguments, const Redirected& redirected = {});
  QvioTerminal(const QvioTerminal&) = delete;
  QvioTerminal& operator=(const QvioTerminal&) = delete;
  ~QvioTerminal();

  void type(const std::string& keys) const;

  /// Whether the text appears on the screen, within the generous limit, after what was seen before.
  [[nodiscard]] bool shows(const std::string& text);

  /// The exit status, once it has ended.
  [[nodiscard]] int waitForEnd();

  /// Whether qvio reads all that was typed, within the generous limit.
  [[nodiscard]] bool takesAllKeys() const;

  /// What qvio prints to, as another descriptor.
  [[nodiscard]] cppu::UniqueFd openScreen() const;

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
