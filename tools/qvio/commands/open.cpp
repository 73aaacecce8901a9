#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "commands/commands.h"
#include "commands/open_terminal.h"
#include "device/exchange.h"
#include "terminal/text.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

using std::chrono::milliseconds;

struct OpenOptions : OpenTerminal::Options {
  uint32_t quietMs = 500;
  uint32_t seconds = 0;  ///< overall limit with a pipe; 0: none
};

/// Sends standard input as it is until its end, and prints answers. False when the limit comes first.
bool SendInput(PolledChannel& channel, Exchange& exchange, bool hex, cppu::Deadline limit) {
  std::array<pollfd, 2> entries{{{STDIN_FILENO, POLLIN, 0}, {channel.readyFd(), POLLIN, 0}}};
  std::string hexText;
  while (!exchange.isLost()) {
    if (cppu::PollUntil(entries, limit) == 0 || cppu::HasPassed(limit)) return false;
    if (entries[1].revents != 0) exchange.receiveUntil(Clock::now());
    if (entries[0].revents == 0) continue;
    std::array<char, 65536> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by read
    const auto got = cppu::Uninterrupted([&] { return ::read(STDIN_FILENO, buffer.data(), buffer.size()); });
    if (got < 0) throw CommandFailure(std::string("standard input: ") + std::strerror(errno));
    if (got == 0) break;
    const std::string bytes(buffer.data(), static_cast<std::size_t>(got));
    if (hex) {
      hexText += bytes;
    } else if (!exchange.send(bytes, limit)) {
      return exchange.isLost();
    }
  }
  return !hex || exchange.send(FromHex(hexText), limit) || exchange.isLost();
}

int Pipe(PolledChannel& channel, const OpenOptions& options) {
  Exchange exchange(channel, options.channel.hex);
  cppu::Deadline limit;
  if (options.seconds > 0) limit = Clock::now() + std::chrono::seconds(options.seconds);
  const bool isSent = SendInput(channel, exchange, options.channel.hex, limit);
  const auto inputEnded = Clock::now();
  const auto quietAt = [&] {
    return cppu::Sooner(std::max(exchange.lastByte(), inputEnded) + milliseconds(options.quietMs), limit);
  };
  while (!exchange.isLost() && !cppu::HasPassed(limit) && exchange.receiveUntil(quietAt())) {
  }
  exchange.finish();
  if (!isSent) {
    std::fprintf(stderr, "qvio: not all of the input was sent within %u s\n", options.seconds);
    return TimedOut;
  }
  return exchange.isLost() ? Refused : Done;
}

int Open(const OpenOptions& options) {
  const bool isTerminal = ::isatty(STDIN_FILENO) != 0;
  if (!isTerminal && (options.timestamps || !options.logFile.empty()))
    throw CommandFailure("--timestamp and --log are for a terminal; \"qvio log\" captures without one",
                         WrongUsage);
  PolledChannel channel(options.channel);
  if (!isTerminal) return Pipe(channel, options);
  std::fprintf(stderr, "qvio: %s %s; Ctrl-] leaves\n", OneLine(options.channel.locator).c_str(),
               channel.isOpen() ? "is open" : "is being waited for");
  return OpenTerminal(channel, options).run();
}

}  // namespace

void AddOpenCommand(CLI::App& app, Run& run) {
  auto* const command =
      app.add_subcommand("open", "Talk to a device: a terminal, or standard input if it is a pipe");
  auto& options = SetAction(*command, run, Open);
  options.channel.addTo(*command);
  options.channel.addReconnectTo(*command);
  command->add_flag("-T,--timestamp", options.timestamps, "Begin each received line with its local time");
  command->add_option(
      "-l,--log", options.logFile,
      "Append what is sent and received to a file, with times: > sent, < received, ! notices");
  command->add_option("--quiet-ms", options.quietMs, "With a pipe: end after this quiet, in milliseconds")
      ->capture_default_str();
  command->add_option("--for", options.seconds,
                      "With a pipe: end after this many seconds at the latest; 124 if not all was sent");
  command->footer(
      "At a terminal each line is sent with its line end (--eol); Ctrl-] or Ctrl-D leaves. Received control\n"
      "characters are shown as \\xNN; standard output that is not a terminal gets the bytes as they are.\n"
      "With a pipe as standard input bytes are sent and printed as they are.\n"
      "Exit status: 1 when the device is gone, unless it is waited for (--reconnect): then lines that are "
      "typed\n"
      "wait as well, and a send that the loss has cut off is reported and not repeated.\n"
      "Example:\n  qvio open serial:/dev/ttyUSB0 -o \"baudrate 115200\" --eol crlf\n"
      "  echo \"POS?\" | qvio open network:192.168.0.10:5000");
}

}  // namespace qvio_tool
