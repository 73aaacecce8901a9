#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace qvio_tool {

/// The question before something is changed.
class Confirmation {
 public:
  void addTo(CLI::App& command);

  /// Throws CommandFailure when the question is needed and there is nobody to answer it. Call it before
  /// anything is sent.
  void requirePossible() const;

  /// Prints the summary on standard error and asks. Throws CommandFailure unless the answer is yes.
  void ask(const std::string& summary) const;

 private:
  bool yes_ = false;
};

}  // namespace qvio_tool
