#pragma once

#include <histedit.h>

#include <memory>
#include <string>
#include <string_view>

namespace qvio_tool {

/// Line editing with history on the terminal of standard input and output. The terminal is in editing mode
/// during the editor's life. The history is kept in ~/.local/state/qvio/history (or below XDG_STATE_HOME);
/// where that cannot be written it lasts for the editor's life.
class LineEditor {
 public:
  LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;
  ~LineEditor();

  enum class Event { None, Line, Leave };

  /// Takes one key; to be called when standard input is readable.
  Event readKey();

  /// The line that was entered, without its end.
  [[nodiscard]] const std::string& line() const { return line_; }

  /// Prints whole lines above the one that is being edited.
  /// @param fd  standard output or standard error
  void printAbove(std::string_view text, int fd);

  /// After the terminal has another size, or was given to another program for a while.
  void redraw();

 private:
  static int readCharacter(EditLine* editor, wchar_t* character);

  bool leaving_ = false;
  std::string line_;
  std::string historyFile_;
  std::unique_ptr<History, void (*)(History*)> history_;
  std::unique_ptr<EditLine, void (*)(EditLine*)> editor_;
};

}  // namespace qvio_tool
