#include "terminal/line_editor.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <utility>

#include "terminal/failure.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

constexpr int kHistoryLength = 500;
constexpr char kLeave = '\x1d';                          // Ctrl-]
constexpr auto kInvalid = static_cast<std::size_t>(-1);  // of mbrtowc, as the next
constexpr auto kIncomplete = static_cast<std::size_t>(-2);
constexpr std::string_view kPrompt = "> ";
constexpr std::chrono::milliseconds kLastWords{500};

std::string HistoryFile() {
  const auto* const state = std::getenv("XDG_STATE_HOME");
  const auto* const home = std::getenv("HOME");
  if (state == nullptr && home == nullptr) return {};
  const auto folder = state != nullptr ? std::filesystem::path(state) / "qvio"
                                       : std::filesystem::path(home) / ".local" / "state" / "qvio";
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  return folder / "history";
}

char* Prompt(EditLine* /*editor*/) {
  static std::string prompt(kPrompt);
  return prompt.data();
}

struct Size {
  std::size_t rows;
  std::size_t columns;
};

/// As the editor understands it.
Size SizeOf(int terminal) {
  winsize size{};
  if (::ioctl(terminal, TIOCGWINSZ, &size) != 0) size = {};
  const std::size_t rows = size.ws_row > 0 ? size.ws_row : 24;
  const std::size_t columns = size.ws_col > 1 ? size.ws_col : 80;
  return {rows, columns};
}

/// The cells that the editor fills with a character that is to be shown at a column.
std::size_t CellsFor(wchar_t character, std::size_t column, std::size_t columns) {
  constexpr std::size_t kTab = 8;
  if (character == L'\t') return std::min(kTab - column % kTab, columns - column);
  if (character < L' ' || character == L'\x7f') return 2;  // ^X
  const int width = ::wcwidth(character);
  if (width < 0) return character > 0xFFFF ? 8 : 7;  // \U+XXXX
  const auto cells = static_cast<std::size_t>(width);
  const bool fits = column + cells <= columns;
  return fits ? cells : columns - column + cells;  // a wide one is not cut
}

/// How many rows the cursor is below the prompt after this text.
std::size_t RowsBelowPrompt(std::wstring_view text, std::size_t columns) {
  std::size_t cells = kPrompt.size();
  for (const wchar_t character : text) cells += CellsFor(character, cells % columns, columns);
  return cells / columns;
}

}  // namespace

LineEditor::LineEditor(int wake)
    : wake_(wake),
      screen_(STDIN_FILENO),
      historyFile_(HistoryFile()),
      stream_(::fopencookie(this, "w", {nullptr, &LineEditor::addToScreen, nullptr, nullptr}), std::fclose),
      history_(::history_init(), ::history_end),
      editor_(
          ::el_init_fd("qvio", stdin, stream_.get(), stream_.get(), STDIN_FILENO, screen_.fd(), screen_.fd()),
          ::el_end) {
  HistEvent event{};
  ::history(history_.get(), &event, H_SETSIZE, kHistoryLength);
  ::history(history_.get(), &event, H_SETUNIQUE, 1);
  ::history(history_.get(), &event, H_LOAD, historyFile_.c_str());
  setUp();
}

void LineEditor::setUp() {
  auto* const editor = editor_.get();
  ::el_set(editor, EL_EDITOR, "emacs");
  ::el_set(editor, EL_PROMPT, Prompt);
  ::el_set(editor, EL_HIST, ::history, history_.get());
  ::el_set(editor, EL_CLIENTDATA, this);
  ::el_set(editor, EL_GETCFN, &LineEditor::readCharacter);
  ::el_source(editor, nullptr);
  ::el_set(editor, EL_SETTY, "-d", "-icrnl", "-inlcr", nullptr);  // to recognise a pasted CR LF
  // Between two lines the editor leaves editing mode for a moment, in which pasted text must not change.
  ::el_set(editor, EL_SETTY, "-x", "-icrnl", "-inlcr", "-icanon", "-echo", nullptr);
  ::el_set(editor, EL_UNBUFFERED, 1);
}

LineEditor::~LineEditor() {
  ::el_set(editor_.get(), EL_UNBUFFERED, 0);
  HistEvent event{};
  ::history(history_.get(), &event, H_SAVE, historyFile_.c_str());
  try {
    screen_.add("\r\n");
    screen_.writeUntil(std::chrono::steady_clock::now() + kLastWords);
  } catch (const CommandFailure&) {  // the terminal is gone
  }
}

/// Takes what the editor prints. Where the screen has no room it is dropped, and all is drawn again later.
ssize_t LineEditor::addToScreen(void* editor, const char* bytes, std::size_t size) {
  auto& self = *static_cast<LineEditor*>(editor);
  if (self.screen_.hasRoom()) {
    self.screen_.add({bytes, size});
  } else {
    self.incomplete_ = true;
  }
  return static_cast<ssize_t>(size);
}

/// False when the wake descriptor becomes readable first, or there is no more input.
bool LineEditor::readByte(char& byte) const {
  std::array<pollfd, 2> entries{{{STDIN_FILENO, POLLIN, 0}, {wake_, POLLIN, 0}}};
  if (cppu::PollUntil(entries, {}) < 0 || entries[1].revents != 0) return false;
  return cppu::Uninterrupted([&] { return ::read(STDIN_FILENO, &byte, 1); }) == 1;
}

/// Reads one character for the editor. Ctrl-] is taken here: it leaves whatever the line holds. The LF of a
/// CR LF is not a character.
int LineEditor::readCharacter(EditLine* editor, wchar_t* character) {
  LineEditor* self = nullptr;
  ::el_get(editor, EL_CLIENTDATA, &self);
  std::mbstate_t state{};
  char byte = 0;
  while (self->readByte(byte)) {
    const bool endsReturn = std::exchange(self->afterReturn_, byte == '\r') && byte == '\n';
    self->leaving_ = byte == kLeave;
    if (self->leaving_ || endsReturn) return 0;
    const auto converted = std::mbrtowc(character, &byte, 1, &state);
    if (converted == kIncomplete) continue;
    if (converted == kInvalid) *character = L'?';
    return 1;
  }
  return 0;
}

LineEditor::Event LineEditor::readKey() {
  int count = 0;
  const char* const text = ::el_gets(editor_.get(), &count);
  if (leaving_) return Event::Leave;
  if (text == nullptr || count <= 0) return Event::None;  // -1 means that the line is empty
  line_.assign(text, static_cast<std::size_t>(count));
  if (line_ == "\x04") return Event::Leave;  // Ctrl-D on an empty line
  if (line_.back() != '\n' && line_.back() != '\r') return Event::None;
  line_.pop_back();
  HistEvent event{};
  if (!line_.empty()) ::history(history_.get(), &event, H_ENTER, line_.c_str());
  ::el_set(editor_.get(), EL_UNBUFFERED, 0);  // begins a new line
  ::el_set(editor_.get(), EL_UNBUFFERED, 1);
  return Event::Line;
}

void LineEditor::redraw() {
  ::el_resize(editor_.get());
  ::el_set(editor_.get(), EL_PREP_TERM, 0);  // else it believes that nothing has changed
  ::el_set(editor_.get(), EL_PREP_TERM, 1);
  ::el_set(editor_.get(), EL_REFRESH);
}

/// Moves to where the prompt begins, and clears the rows of the line.
std::string LineEditor::eraseLine() const {
  const auto* const line = ::el_wline(editor_.get());
  const auto size = SizeOf(screen_.fd());
  const std::wstring_view text(line->buffer, static_cast<std::size_t>(line->cursor - line->buffer));
  const auto up = std::min(RowsBelowPrompt(text, size.columns), size.rows - 1);  // what is above has gone
  return (up > 0 ? "\r\x1b[" + std::to_string(up) + "A" : "\r") + "\x1b[J";
}

void LineEditor::printAbove(std::string_view text) {
  std::fflush(stream_.get());
  screen_.add(eraseLine());
  screen_.add(text);
  ::el_set(editor_.get(), EL_REFRESH);
}

void LineEditor::writeScreen() {
  screen_.write();
  if (screen_.isEmpty() && std::exchange(incomplete_, false)) printAbove({});
}

}  // namespace qvio_tool
