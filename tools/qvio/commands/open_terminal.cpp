#include "commands/open_terminal.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "terminal/text.h"
#include "terminal/time_text.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

constexpr std::chrono::milliseconds kLastBytes{500};
constexpr int kNone = -1;  // a descriptor that poll ignores

std::string LinePrefix() { return LocalTime(std::chrono::system_clock::now()) + ' '; }

}  // namespace

OpenTerminal::OpenTerminal(PolledChannel& channel, const Options& options)
    : channel_(channel),
      options_(options.channel),
      asLines_(options.channel.hex || options.timestamps),
      editor_(signals_.fd()),
      showsBytes_(::isatty(STDOUT_FILENO) != 0),
      showsNotices_(::isatty(STDERR_FILENO) != 0),
      bytes_(showsBytes_ ? kNone : STDOUT_FILENO),
      notices_(showsNotices_ ? kNone : STDERR_FILENO),
      received_(options_.form(), options.timestamps ? LinePrefix : ReceivedText::Prefix()) {
  if (options.logFile.empty()) return;
  logFile_.emplace(options.logFile);
  log_.emplace([this](std::string_view lines) { logFile_->append(lines); }, options_.form());
}

ExitStatus OpenTerminal::run() {
  std::optional<ExitStatus> status;
  while (!status) status = turn();
  finish();
  return *status;
}

/// Keys and signals come first, however much the device sends. While an output takes no more, arrivals are
/// not taken, so that receiving waits. The exit status at the end.
std::optional<ExitStatus> OpenTerminal::turn() {
  const bool receives = isAllWritten() && !lost_;
  const auto ready = static_cast<short>(receives ? POLLIN : 0);
  std::array<pollfd, 6> entries{{{STDIN_FILENO, POLLIN, 0},
                                 {signals_.fd(), POLLIN, 0},
                                 {channel_.readyFd(), ready, 0},
                                 editor_.screen().entry(),
                                 bytes_.entry(),
                                 notices_.entry()}};
  cppu::PollUntil(entries, receives ? due() : cppu::Deadline{});
  if (std::ranges::any_of(entries, PolledOutput::isDead)) return Done;
  if (entries[1].revents != 0 && !handleSignal()) return Done;
  if (entries[0].revents != 0 && !handleKey()) return Done;
  if (entries[2].revents != 0) receive();
  if (receives) showUnfinishedIfDue();
  write();
  return lost_ && isAllWritten() ? std::optional(Refused) : std::nullopt;
}

/// False when the program is to end.
bool OpenTerminal::handleSignal() {
  if (signals_.take() == TerminalSignals::Event::End) return false;
  editor_.redraw();
  return true;
}

/// False when the user leaves.
bool OpenTerminal::handleKey() {
  const auto event = editor_.readKey();
  if (event == LineEditor::Event::Line) send(editor_.line());
  return event != LineEditor::Event::Leave;
}

void OpenTerminal::send(const std::string& line) try {
  const auto bytes = options_.hex ? FromHex(line) : line + options_.eol;
  if (!channel_.send(bytes)) return report("the device takes no bytes; this line is not sent");
  if (log_) log_->addSent(bytes);
} catch (const CommandFailure& failure) {  // not hexadecimal
  report(failure.what());
}

void OpenTerminal::receive() {
  std::string bytes;
  for (const auto& arrival : channel_.take()) {
    if (arrival.kind == Arrival::Kind::Bytes) {
      bytes += arrival.text;
    } else {
      show(std::exchange(bytes, {}));
      handle(arrival);
    }
    if (lost_) return;
  }
  show(bytes);
}

/// Handles what is not bytes.
void OpenTerminal::handle(const Arrival& arrival) {
  if (arrival.kind == Arrival::Kind::Sent) return;
  lost_ = arrival.kind == Arrival::Kind::Lost;
  showLines(received_.takeRest());
  report(arrival.text);
}

void OpenTerminal::show(const std::string& bytes) {
  if (bytes.empty()) return;
  if (log_) log_->addReceived(bytes);
  showsBytes_ || asLines_ ? showLines(received_.add(bytes, Clock::now())) : bytes_.add(bytes);
}

void OpenTerminal::showLines(const std::string& lines) { showsBytes_ ? print(lines) : bytes_.add(lines); }

/// When unfinished lines are to be shown and logged.
cppu::Deadline OpenTerminal::due() const {
  return cppu::Sooner(received_.due(), log_ ? log_->due() : cppu::Deadline{});
}

void OpenTerminal::showUnfinishedIfDue() {
  if (cppu::HasPassed(received_.due())) showLines(received_.takeRest());
  if (log_) log_->addDue();
}

/// Nobody may be reading: then a notice that has no room is dropped.
void OpenTerminal::report(const std::string& text) {
  if (log_) log_->addNotice(text);
  const auto line = "qvio: " + text + '\n';
  if (showsNotices_ && editor_.screen().hasRoom()) print(line);
  if (!showsNotices_ && notices_.hasRoom()) notices_.add(line);
}

void OpenTerminal::print(const std::string& lines) {
  if (!lines.empty()) editor_.printAbove(lines);
}

void OpenTerminal::write() {
  editor_.writeScreen();
  bytes_.write();
  notices_.write();
}

bool OpenTerminal::isAllWritten() const {
  return editor_.screen().isEmpty() && bytes_.isEmpty() && notices_.isEmpty();
}

/// Shows what is left, and waits a short time for outputs that do not take it.
void OpenTerminal::finish() {
  showLines(received_.takeRest());
  if (log_) log_->addRest();
  const auto deadline = Clock::now() + kLastBytes;
  bytes_.writeUntil(deadline);
  notices_.writeUntil(deadline);
}

}  // namespace qvio_tool
