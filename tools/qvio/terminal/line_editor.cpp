#include "terminal/line_editor.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>

#include "terminal/output.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

constexpr int kHistoryLength = 500;
constexpr char kLeave = '\x1d';                          // Ctrl-]
constexpr auto kInvalid = static_cast<std::size_t>(-1);  // of mbrtowc, as the next
constexpr auto kIncomplete = static_cast<std::size_t>(-2);

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
  static std::string prompt = "> ";
  return prompt.data();
}

}  // namespace

LineEditor::LineEditor()
    : historyFile_(HistoryFile()),
      history_(::history_init(), ::history_end),
      editor_(::el_init("qvio", stdin, stdout, stderr), ::el_end) {
  HistEvent event{};
  ::history(history_.get(), &event, H_SETSIZE, kHistoryLength);
  ::history(history_.get(), &event, H_SETUNIQUE, 1);
  ::history(history_.get(), &event, H_LOAD, historyFile_.c_str());
  auto* const editor = editor_.get();
  ::el_set(editor, EL_EDITOR, "emacs");
  ::el_set(editor, EL_PROMPT, Prompt);
  ::el_set(editor, EL_HIST, ::history, history_.get());
  ::el_set(editor, EL_CLIENTDATA, this);
  ::el_set(editor, EL_GETCFN, &LineEditor::readCharacter);
  ::el_source(editor, nullptr);
  ::el_set(editor, EL_UNBUFFERED, 1);
}

LineEditor::~LineEditor() {
  ::el_set(editor_.get(), EL_UNBUFFERED, 0);
  std::fputs("\r\n", stdout);
  std::fflush(stdout);
  HistEvent event{};
  ::history(history_.get(), &event, H_SAVE, historyFile_.c_str());
}

/// Reads one character for the editor. Ctrl-] is taken here: it leaves whatever the line holds.
int LineEditor::readCharacter(EditLine* editor, wchar_t* character) {
  LineEditor* self = nullptr;
  ::el_get(editor, EL_CLIENTDATA, &self);
  std::mbstate_t state{};
  char byte = 0;
  while (cppu::Uninterrupted([&] { return ::read(STDIN_FILENO, &byte, 1); }) == 1) {
    self->leaving_ = byte == kLeave;
    if (self->leaving_) return 0;
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
  std::fflush(stdout);
}

void LineEditor::printAbove(std::string_view text, int fd) {
  std::fflush(stdout);
  WriteAll(fd, "\r\x1b[K" + std::string(text));
  ::el_set(editor_.get(), EL_REFRESH);
  std::fflush(stdout);
}

}  // namespace qvio_tool
