#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "channel.h"
#include "channel_options.h"
#include "commands.h"
#include "conversation.h"
#include "text_codec.h"

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

/// Receives until what is awaited has come: the bytes, the text, or else any answer and then quiet.
int AwaitAnswer(Conversation& conversation, const SendOptions& options) {
  const auto until = FromEscaped(options.until);
  const bool exact = options.bytes > 0 || !until.empty();
  const auto limit = Clock::now() + milliseconds(options.waitMs);
  for (;;) {
    const auto& answer = conversation.answer();
    const bool enough = options.bytes > 0 && answer.size() >= options.bytes;
    const bool found = !until.empty() && answer.find(until) != std::string::npos;
    if (enough || found) return Done;
    if (conversation.isLost()) return !exact && !answer.empty() ? Done : Refused;
    const bool untilQuiet = !exact && !answer.empty();
    const auto deadline = untilQuiet ? conversation.lastByte() + milliseconds(options.quietMs) : limit;
    if (!conversation.receiveUntil(deadline)) return untilQuiet ? Done : TimedOut;
  }
}

int Send(const SendOptions& options) {
  const auto request = Request(options);  // a wrong one opens nothing
  Channel channel(options.channel.locator, options.channel.text());
  channel.send(request);
  if (options.waitMs == 0) return Done;
  Conversation conversation(channel,
                            options.channel.hex ? Conversation::Format::Hex : Conversation::Format::Raw);
  const int status = AwaitAnswer(conversation, options);
  conversation.finish();
  if (status == TimedOut) std::fprintf(stderr, "qvio: no whole answer within %u ms\n", options.waitMs);
  return status;
}

}  // namespace

void AddSendCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<SendOptions>();
  auto* const command = app.add_subcommand("send", "Send one request and print the answer");
  options->channel.addTo(*command);
  options->channel.addLineEnd(*command, "lf");
  command->add_option("text", options->text, R"(The request; \n, \r, \t, \\ and \xNN are read as such)")
      ->required();
  command->add_option("--wait", options->waitMs, "Milliseconds to wait for the answer; 0: do not wait")
      ->capture_default_str();
  command
      ->add_option("--quiet-ms", options->quietMs,
                   "Without --bytes and --until: the answer ends after this quiet")
      ->capture_default_str();
  command->add_option("--bytes", options->bytes, "The answer ends with this many bytes");
  command->add_option("--until", options->until, "The answer ends with this text");
  command->footer(
      "Exit status: 0 answered, 1 refused or lost, 2 wrong usage, 124 no (whole) answer in time.\nExample:\n"
      "  qvio send serial:/dev/ttyUSB0 \"*IDN?\" -o \"baudrate 115200\" --until \"\\n\"");
  command->callback([options, &run] { run = [options] { return Send(*options); }; });
}

}  // namespace qvio_tool
