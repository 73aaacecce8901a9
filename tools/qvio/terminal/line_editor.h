#pragma once

#include <histedit.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "terminal/polled_output.h"

namespace qvio_tool {

/// Line editing with history on the terminal of standard input, wherever standard output goes. The terminal
/// is in editing mode during the editor's life. It is written only by screen(), from the caller's poll loop,
/// so a terminal that is not read, or stopped with Ctrl-S, holds nothing up. The history is kept in
/// ~/.local/state/qvio/history (or below XDG_STATE_HOME); where that cannot be written it lasts for the
/// editor's life.
class LineEditor {
 public:
  /// @param wake  a descriptor; when it is readable, waiting for the rest of a sequence of keys ends
  explicit LineEditor(int wake);
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  /// Waits a short time for what the screen has not taken yet.
  ~LineEditor();

  enum class Event { None, Line, Leave };

  /// Takes one key; to be called when standard input is readable.
  Event readKey();

  /// The line that was entered, without its end.
  [[nodiscard]] const std::string& line() const { return line_; }

  /// Prints whole lines above the one that is being edited. Ask screen() for room first.
  void printAbove(std::string_view text);

  /// After the terminal has another size, or was given to another program for a while.
  void redraw();

  /// Writes what the screen takes now. Throws CommandFailure.
  void writeScreen();
  [[nodiscard]] const PolledOutput& screen() const { return screen_; }

 private:
  static int readCharacter(EditLine* editor, wchar_t* character);
  static ssize_t addToScreen(void* editor, const char* bytes, std::size_t size);
  [[nodiscard]] bool readByte(char& byte) const;
  void setUp();
  void beginLine();
  [[nodiscard]] std::string eraseLine() const;

  const int wake_;
  PolledOutput screen_;
  bool incomplete_ = false;  ///< the screen had no room for some of the editor's output
  bool leaving_ = false;
  bool afterReturn_ = false;  ///< the last character was a CR
  std::string line_;
  const std::string historyFile_;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream_;  ///< where the editor prints
  const std::unique_ptr<History, void (*)(History*)> history_;
  const std::unique_ptr<EditLine, void (*)(EditLine*)> editor_;
};

}  // namespace qvio_tool
