#include "commands/open_terminal.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "terminal/text.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

constexpr std::chrono::milliseconds kLastBytes{500};
constexpr int kNone = -1;  // a descriptor that poll ignores

}  // namespace

OpenTerminal::OpenTerminal(PolledChannel& channel, const ChannelOptions& options)
    : channel_(channel),
      options_(options),
      editor_(signals_.fd()),
      showsBytes_(::isatty(STDOUT_FILENO) != 0),
      showsNotices_(::isatty(STDERR_FILENO) != 0),
      bytes_(showsBytes_ ? kNone : STDOUT_FILENO),
      notices_(showsNotices_ ? kNone : STDERR_FILENO) {}

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
  cppu::PollUntil(entries, receives ? received_.due() : cppu::Deadline{});
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
  if (!channel_.send(options_.hex ? FromHex(line) : line + options_.eol))
    report("the device takes no bytes; this line is not sent");
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
  if (arrival.kind == Arrival::Kind::Lost) {
    lost_ = true;
    print(received_.takeRest());
  }
  report(arrival.text);
}

void OpenTerminal::show(const std::string& bytes) {
  if (bytes.empty()) return;
  const auto hexLine = options_.hex ? ToHex(bytes) + '\n' : "";
  if (!showsBytes_) return bytes_.add(options_.hex ? hexLine : bytes);
  print(options_.hex ? hexLine : received_.add(bytes, Clock::now()));
}

void OpenTerminal::showUnfinishedIfDue() {
  const auto due = received_.due();
  if (due && Clock::now() >= *due) print(received_.takeRest());
}

/// Nobody may be reading: then a notice that has no room is dropped.
void OpenTerminal::report(const std::string& text) {
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
  print(received_.takeRest());
  const auto deadline = Clock::now() + kLastBytes;
  bytes_.writeUntil(deadline);
  notices_.writeUntil(deadline);
}

}  // namespace qvio_tool
