#include <chrono>
#include <cstdio>
#include <string>

#include "commands/commands.h"
#include "device/channel_use.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

using std::chrono::milliseconds;

struct SendOptions {
  ChannelOptions channel;
  std::string text;
  uint32_t waitMs = 1000;
  uint32_t quietMs = 100;
  std::size_t bytes = 0;
  std::string until;
};

std::string Request(const SendOptions& options) {
  if (options.channel.hex) return FromHex(options.text);
  return FromEscaped(options.text) + options.channel.eol;
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

int Send(const SendOptions& options) {
  const auto request = Request(options);  // a wrong one opens nothing
  PolledChannel channel(options.channel);
  if (options.waitMs == 0)
    return Exchange(channel, options.channel.hex, Exchange::Answer::Dropped).send(request) ? Done : Refused;
  Exchange exchange(channel, options.channel.hex);
  const auto limit = Clock::now() + milliseconds(options.waitMs);
  const bool isSent = exchange.send(request, limit);
  if (!isSent && !exchange.isLost())
    return ReportTimeOut("the device has not taken the whole request", options);
  const int status = AwaitAnswer(exchange, options, limit);
  exchange.finish();
  return status == TimedOut ? ReportTimeOut("no complete answer", options) : status;
}

}  // namespace

void AddSendCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("send", "Send one request and print the answer");
  auto& options = SetAction(*command, run, Send);
  options.channel.addTo(*command);
  command->add_option("text", options.text, R"(The request; \n, \r, \t, \\ and \xNN stand for bytes)")
      ->required();
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
