#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "commands/commands.h"
#include "device/channel_use.h"
#include "terminal/line_editor.h"
#include "terminal/signals.h"
#include "terminal/text.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kWholeLine{100};  // an unfinished line is shown after this quiet

struct OpenOptions {
  ChannelOptions channel;
  uint32_t quietMs = 500;
};

/// A terminal: lines typed go to the device, received bytes appear above the line that is being edited.
class Terminal {
 public:
  Terminal(PolledChannel& channel, const ChannelOptions& options) : channel_(channel), options_(options) {}
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() { channel_.close(); }  // before a signal that was taken ends the program

  /// Keys and signals come first in each turn, however much the device sends.
  void run() {
    std::array<pollfd, 3> entries{
        {{STDIN_FILENO, POLLIN, 0}, {signals_.fd(), POLLIN, 0}, {channel_.readyFd(), POLLIN, 0}}};
    const auto& [keys, signals, arrivals] = entries;
    for (;;) {
      const auto deadline =
          unfinished_.empty() ? cppu::Deadline{} : cppu::Deadline(Clock::now() + kWholeLine);
      if (cppu::PollUntil(entries, deadline) == 0) showUnfinished();
      if ((keys.revents & (POLLHUP | POLLERR)) != 0) return;
      if (signals.revents != 0 && !handleSignal()) return;
      if (keys.revents != 0 && !handleKey()) return;
      if (arrivals.revents != 0) receive();
    }
  }

 private:
  /// False when the program is to end.
  bool handleSignal() {
    if (signals_.take() == TerminalSignals::Event::End) return false;
    editor_.redraw();
    return true;
  }

  /// False when the user leaves.
  bool handleKey() {
    const auto event = editor_.readKey();
    if (event == LineEditor::Event::Line) send(editor_.line());
    return event != LineEditor::Event::Leave;
  }

  void send(const std::string& line) try {
    if (!channel_.send(options_.hex ? FromHex(line) : line + options_.eol))
      report("the device takes no bytes; this line is not sent");
  } catch (const CommandFailure& failure) {  // not hexadecimal
    report(failure.what());
  }

  void receive() {
    std::string bytes;
    for (auto& arrival : channel_.take()) {
      if (arrival.kind == Arrival::Kind::Sent) continue;
      if (arrival.kind == Arrival::Kind::Bytes) {
        bytes += arrival.text;
      } else {
        show(std::exchange(bytes, {}));
        report(arrival.text);
      }
    }
    show(bytes);
  }

  void report(const std::string& text) { editor_.printAbove("qvio: " + text + '\n', STDERR_FILENO); }

  void show(const std::string& bytes) {
    if (bytes.empty()) return;
    if (options_.hex) return editor_.printAbove(ToHex(bytes) + '\n', STDOUT_FILENO);
    unfinished_ += bytes;
    const auto end = unfinished_.rfind('\n');
    if (end != std::string::npos) {
      editor_.printAbove(Printable(std::string_view(unfinished_).substr(0, end + 1)), STDOUT_FILENO);
      unfinished_.erase(0, end + 1);
    } else if (unfinished_.size() > PolledChannel::kBytesInTurn) {
      showUnfinished();
    }
  }

  void showUnfinished() {
    editor_.printAbove(Printable(unfinished_) + '\n', STDOUT_FILENO);
    unfinished_.clear();
  }

  PolledChannel& channel_;
  const ChannelOptions& options_;
  TerminalSignals signals_;
  LineEditor editor_;
  std::string unfinished_;  ///< of a line that the device has begun
};

/// Sends standard input as it is until its end, and prints answers.
void SendInput(PolledChannel& channel, Exchange& exchange, bool hex) {
  std::array<pollfd, 2> entries{{{STDIN_FILENO, POLLIN, 0}, {channel.readyFd(), POLLIN, 0}}};
  std::string hexText;
  while (!exchange.isLost()) {
    cppu::PollUntil(entries, {});
    if (entries[1].revents != 0) exchange.receiveUntil(Clock::now());
    if (entries[0].revents == 0) continue;
    std::array<char, 65536> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by read
    const auto got = cppu::Uninterrupted([&] { return ::read(STDIN_FILENO, buffer.data(), buffer.size()); });
    if (got < 0) throw CommandFailure(std::string("standard input: ") + std::strerror(errno));
    if (got == 0) break;
    const std::string bytes(buffer.data(), static_cast<std::size_t>(got));
    hex ? void(hexText += bytes) : void(exchange.send(bytes));
  }
  if (hex) exchange.send(FromHex(hexText));
}

int Pipe(PolledChannel& channel, const OpenOptions& options) {
  Exchange exchange(channel, options.channel.hex);
  SendInput(channel, exchange, options.channel.hex);
  const auto inputEnded = Clock::now();
  const auto quietAt = [&] {
    return std::max(exchange.lastByte(), inputEnded) + milliseconds(options.quietMs);
  };
  while (!exchange.isLost() && exchange.receiveUntil(quietAt())) {
  }
  exchange.finish();
  return exchange.isLost() ? Refused : Done;
}

int Open(const OpenOptions& options) {
  PolledChannel channel(options.channel);
  if (::isatty(STDIN_FILENO) == 0) return Pipe(channel, options);
  std::fprintf(stderr, "qvio: %s is open; Ctrl-] leaves\n", OneLine(options.channel.locator).c_str());
  Terminal(channel, options.channel).run();
  return Done;
}

}  // namespace

void AddOpenCommand(CLI::App& app, Run& run) {
  auto* const command =
      app.add_subcommand("open", "Talk to a device: a terminal, or standard input if it is a pipe");
  auto& options = SetAction(*command, run, Open);
  options.channel.addTo(*command);
  command->add_option("--quiet-ms", options.quietMs, "With a pipe: end after this quiet, in milliseconds")
      ->capture_default_str();
  command->footer(
      "At a terminal each line is sent with its line end (--eol); Ctrl-] or Ctrl-D leaves. Received control\n"
      "characters are shown as \\xNN. With a pipe bytes are sent and printed as they are.\n"
      "Example:\n  qvio open serial:/dev/ttyUSB0 -o \"baudrate 115200\" --eol crlf\n"
      "  echo \"POS?\" | qvio open network:192.168.0.10:5000");
}

}  // namespace qvio_tool
