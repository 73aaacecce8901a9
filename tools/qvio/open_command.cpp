#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "background_sender.h"
#include "channel.h"
#include "channel_options.h"
#include "commands.h"
#include "conversation.h"
#include "line_editor.h"
#include "notices.h"
#include "result_text.h"
#include "signals.h"
#include "text_codec.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kWholeLine{100};  // an unfinished line is shown after this quiet

struct OpenOptions {
  ChannelOptions channel;
  uint32_t quietMs = 500;
};

/// A terminal: lines typed go to the device, what it sends appears above the line that is being edited.
class Terminal {
 public:
  Terminal(Channel& channel, const ChannelOptions& options) : channel_(channel), options_(options) {}
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() { channel_.close(); }  // ends a send that is stuck

  void run() {
    std::array<pollfd, 3> entries{
        {{STDIN_FILENO, POLLIN, 0}, {channel_.readyFd(), POLLIN, 0}, {signals_.fd(), POLLIN, 0}}};
    for (;;) {
      const auto deadline =
          unfinished_.empty() ? cppu::Deadline{} : cppu::Deadline(Clock::now() + kWholeLine);
      if (cppu::PollUntil(entries, deadline) == 0) showUnfinished();
      if (entries[1].revents != 0) receive();
      const bool hungUp = (entries[0].revents & (POLLHUP | POLLERR)) != 0;
      if (hungUp || (entries[2].revents != 0 && !signalled()) || (entries[0].revents != 0 && !typed())) break;
    }
    tell(notices_.takeCount());
  }

 private:
  /// False when the program is to end.
  bool signalled() {
    if (signals_.take() == TerminalSignals::Event::End) return false;
    editor_.redraw();
    return true;
  }

  /// False when the user leaves.
  bool typed() {
    const auto event = editor_.readKey();
    if (event == LineEditor::Event::Line) send(editor_.line());
    return event != LineEditor::Event::Leave;
  }

  void send(const std::string& line) {
    try {
      sender_.send(options_.hex ? FromHex(line) : line + options_.eol);
    } catch (const CommandFailure& failure) {  // no hexadecimal: told, and the terminal goes on
      tell(std::string("qvio: ") + failure.what() + "\n");
    }
  }

  void receive() {
    const auto arrivals = channel_.take();
    if (!arrivals.bytes.empty()) show(arrivals.bytes);
    for (const auto notice : arrivals.notices) tell(notices_.note(notice));
    for (const auto& failure : arrivals.failures) tell("qvio: " + failure + "\n");
  }

  void tell(const std::string& lines) {
    if (!lines.empty()) editor_.printAbove(lines, STDERR_FILENO);
  }

  void show(const std::string& bytes) {
    if (options_.hex) return editor_.printAbove(ToHex(bytes) + "\n", STDOUT_FILENO);
    unfinished_ += bytes;
    const auto end = unfinished_.rfind('\n');
    if (end == std::string::npos) return;
    editor_.printAbove(Printable(std::string_view(unfinished_).substr(0, end + 1)), STDOUT_FILENO);
    unfinished_.erase(0, end + 1);
  }

  void showUnfinished() {
    editor_.printAbove(Printable(unfinished_) + "\n", STDOUT_FILENO);
    unfinished_.clear();
  }

  Channel& channel_;
  const ChannelOptions& options_;
  TerminalSignals signals_;  // before the sender's thread starts, which would take the signals otherwise
  BackgroundSender sender_{channel_};
  LineEditor editor_;
  Notices notices_;
  std::string unfinished_;  ///< of a line that the device has begun
};

/// Sends standard input as it is and returns at its end. Answers are printed meanwhile.
void SendInput(Channel& channel, Conversation& conversation, const ChannelOptions& options) {
  std::array<pollfd, 2> entries{{{STDIN_FILENO, POLLIN, 0}, {channel.readyFd(), POLLIN, 0}}};
  std::string hexText;
  while (!conversation.isLost()) {
    cppu::PollUntil(entries, {});
    if (entries[1].revents != 0) conversation.receiveUntil(Clock::now());
    if (entries[0].revents == 0) continue;
    std::array<char, 65536> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by read
    const auto got = cppu::Uninterrupted([&] { return ::read(STDIN_FILENO, buffer.data(), buffer.size()); });
    if (got < 0) throw CommandFailure(std::string("standard input: ") + std::strerror(errno));
    if (got == 0) break;
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(got));
    options.hex ? void(hexText += bytes) : channel.send(bytes);
  }
  channel.send(FromHex(hexText));
}

int Pipe(Channel& channel, const OpenOptions& options) {
  Conversation conversation(channel,
                            options.channel.hex ? Conversation::Format::Hex : Conversation::Format::Raw);
  SendInput(channel, conversation, options.channel);
  const auto inputEnded = Clock::now();
  const auto quietAt = [&] {
    return std::max(conversation.lastByte(), inputEnded) + milliseconds(options.quietMs);
  };
  while (!conversation.isLost() && conversation.receiveUntil(quietAt())) {
  }
  conversation.finish();
  return conversation.isLost() ? Refused : Done;
}

int Open(const OpenOptions& options) {
  Channel channel(options.channel.locator, options.channel.text());
  if (::isatty(STDIN_FILENO) == 0) return Pipe(channel, options);
  std::fprintf(stderr, "qvio: %s is open; Ctrl-] leaves\n", options.channel.locator.c_str());
  Terminal(channel, options.channel).run();
  return Done;
}

}  // namespace

void AddOpenCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<OpenOptions>();
  auto* const command =
      app.add_subcommand("open", "Talk to a device: a terminal, or standard input if it is a pipe");
  options->channel.addTo(*command);
  options->channel.addLineEnd(*command, "lf");
  command->add_option("--quiet-ms", options->quietMs, "With a pipe: end after this quiet, in milliseconds")
      ->capture_default_str();
  command->footer(
      "At a terminal each line typed is sent with its line end (--eol); Ctrl-] or Ctrl-D leaves. Control "
      "characters\n"
      "that arrive are shown as \\xNN. A pipe is sent as it is, and what arrives is printed as it is.\n"
      "Example:\n  qvio open serial:/dev/ttyUSB0 -o \"baudrate 115200\" --eol crlf\n"
      "  echo \"POS?\" | qvio open network:192.168.0.10:5000");
  command->callback([options, &run] { run = [options] { return Open(*options); }; });
}

}  // namespace qvio_tool
