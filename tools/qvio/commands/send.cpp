#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "commands/commands.h"
#include "device/exchange.h"
#include "terminal/progress.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

using std::chrono::milliseconds;

struct SendOptions {
  ChannelOptions channel;
  std::optional<std::string> text;
  std::string file;  ///< instead of the text; empty: none
  uint32_t waitMs = 1000;
  uint32_t quietMs = 100;
  std::size_t bytes = 0;
  std::string until;
};

std::string Request(const SendOptions& options) {
  if (!options.text) throw CommandFailure("text is required, or --file", WrongUsage);
  if (options.channel.hex) return FromHex(*options.text);
  return FromEscaped(*options.text) + options.channel.eol;
}

/// Receives until the bytes or the text have come; without either, any answer and then quiet.
int AwaitAnswer(Exchange& exchange, const SendOptions& options, Clock::time_point limit) {
  const auto until = FromEscaped(options.until);
  const bool exact = options.bytes > 0 || !until.empty();
  for (;;) {
    const bool answered = exchange.received() > 0;
    const bool enough = options.bytes > 0 && exchange.received() >= options.bytes;
    const bool found = !until.empty() && exchange.answer().find(until) != std::string::npos;
    if (enough || found) return Done;
    if (exchange.isLost()) return !exact && answered ? Done : Refused;
    const bool untilQuiet = !exact && answered;
    const milliseconds quiet(untilQuiet ? options.quietMs : 0);
    if (Clock::now() >= limit + quiet) return TimedOut;  // the device goes on sending
    const auto deadline = untilQuiet ? exchange.lastByte() + quiet : limit;
    if (!exchange.receiveUntil(deadline)) return untilQuiet ? Done : TimedOut;
  }
}

int ReportTimeOut(const char* what, const SendOptions& options) {
  std::fprintf(stderr, "qvio: %s within %u ms\n", what, options.waitMs);
  return TimedOut;
}

cppu::Deadline LimitFrom(Clock::time_point begin, const SendOptions& options) {
  return options.waitMs == 0 ? cppu::Deadline() : begin + milliseconds(options.waitMs);
}

/// Sends a file as it is. The limit holds for each piece, so that a stalled device is noticed however long
/// the file is; at 9600 baud a piece takes half a second.
bool SendFile(Exchange& exchange, const SendOptions& options) {
  std::array<char, 512> piece;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by read
  std::ifstream file(options.file, std::ios::binary);
  Progress progress(std::filesystem::file_size(options.file));
  uint64_t sent = 0;
  for (;;) {
    file.read(piece.data(), piece.size());
    const auto size = static_cast<std::size_t>(file.gcount());
    if (file.bad()) throw CommandFailure(OneLine(options.file) + ": " + std::strerror(errno));
    if (size == 0) return true;
    if (!exchange.send({piece.data(), size}, LimitFrom(Clock::now(), options))) return false;
    progress.set(sent += size);
  }
}

int Send(const SendOptions& options) {
  const bool isFile = !options.file.empty();
  const auto request = isFile ? "" : Request(options);  // a wrong one opens nothing
  PolledChannel channel(options.channel);
  const bool awaits = options.waitMs != 0;
  Exchange exchange(channel, options.channel.hex,
                    awaits ? Exchange::Answer::Printed : Exchange::Answer::Dropped);
  auto limit = LimitFrom(Clock::now(), options);
  const bool isSent = isFile ? SendFile(exchange, options) : exchange.send(request, limit);
  if (!awaits) return isSent ? Done : Refused;
  if (!isSent && !exchange.isLost())
    return ReportTimeOut(
        isFile ? "the device has not taken the next piece" : "the device has not taken the whole request",
        options);
  if (isFile) limit = LimitFrom(Clock::now(), options);
  const int status = AwaitAnswer(exchange, options, *limit);
  exchange.finish();
  return status == TimedOut ? ReportTimeOut("no complete answer", options) : status;
}

}  // namespace

void AddSendCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("send", "Send one request, or a file, and print the answer");
  auto& options = SetAction(*command, run, Send);
  options.channel.addTo(*command);
  auto* const text =
      command->add_option("text", options.text, R"(The request; \n, \r, \t, \\ and \xNN stand for bytes)");
  command
      ->add_option("-f,--file", options.file,
                   "Send this file as it is instead; --wait holds for each piece of it, and for the answer")
      ->check(CLI::ExistingFile)
      ->excludes(text);
  command
      ->add_option("-w,--wait", options.waitMs,
                   "Milliseconds for the request and its answer together; 0: send without a limit, and do "
                   "not wait for an "
                   "answer")
      ->capture_default_str();
  command
      ->add_option("--quiet-ms", options.quietMs,
                   "Without --bytes and --until: the answer ends after this quiet")
      ->capture_default_str();
  command->add_option("--bytes", options.bytes, "The answer ends with this many bytes");
  command->add_option("--until", options.until, "The answer ends with this text");
  command->footer(
      "Exit status: 0 answered, 1 refused or lost, 2 wrong usage, 124 no or no complete answer in "
      "time.\nExample:\n"
      "  qvio send serial:/dev/ttyUSB0 \"*IDN?\" -o \"baudrate 115200\" --until \"\\n\"");
}

}  // namespace qvio_tool
