#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/option_tree.h"
#include "device/channel_options.h"
#include "device/listing.h"
#include "device/named_devices.h"
#include "terminal/output.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

struct CompleteOptions {
  const CLI::App* program = nullptr;
  std::vector<std::string> words;  ///< after the program's name; the last is to be completed
};

struct Candidate {
  std::string word;
  std::string help;
};

/// What the words before the last one lead to.
struct Position {
  const CommandEntry* command;
  const OptionEntry* awaitsValue = nullptr;
  std::size_t places = 0;  ///< taken
};

template <class Entries, class Same>
auto Find(const Entries& entries, Same same) {
  const auto found = std::ranges::find_if(entries, same);
  return found != entries.end() ? &*found : nullptr;
}

void Advance(Position& position, const std::string& word) {
  if (position.awaitsValue != nullptr) {
    position.awaitsValue = nullptr;
  } else if (word.starts_with('-')) {
    const auto* const option = Find(position.command->options, [&](const OptionEntry& entry) {
      return std::ranges::find(entry.names, word) != entry.names.end();
    });
    if (option != nullptr && !option->value.empty()) position.awaitsValue = option;
  } else if (const auto* const inner = Find(position.command->commands, [&](const CommandEntry& entry) {
               return entry.words.back() == word;
             })) {
    position.command = inner;
  } else {
    ++position.places;
  }
}

/// Names of devices and serial ports. Never searches: that would send datagrams for a key.
std::vector<Candidate> KnownDevices() {
  std::vector<Candidate> candidates;
  for (const auto& name : DeviceNames()) candidates.push_back({name, "a device of " + DevicesFile()});
  DeviceList ports;
  ports.addSerialPorts();
  for (const auto& port : ports.devices)
    candidates.push_back({port.locator.substr(kSerialWord.size()), port.row.back()});
  return candidates;
}

std::vector<Candidate> CandidatesAt(const Position& position, bool isOption) {
  std::vector<Candidate> candidates;
  if (position.awaitsValue != nullptr) {
    for (const auto& choice : position.awaitsValue->choices) candidates.push_back({choice, ""});
  } else if (isOption) {
    for (const auto& option : position.command->options)
      for (const auto& name : option.names) candidates.push_back({name, option.help});
  } else if (!position.command->commands.empty()) {
    for (const auto& command : position.command->commands)
      candidates.push_back({command.words.back(), command.help});
  } else if (!position.command->places.empty()) {
    const auto last = position.command->places.size() - 1;  // which may be repeated
    const auto& place = position.command->places.at(std::min(position.places, last));
    if (place.names.front().starts_with("locator")) return KnownDevices();
  }
  return candidates;
}

int Complete(const CompleteOptions& options) {
  const auto program = Describe(*options.program);
  Position position{&program};
  const auto last = options.words.empty() ? "" : options.words.back();
  for (std::size_t i = 0; i + 1 < options.words.size(); ++i) Advance(position, options.words[i]);
  for (const auto& candidate : CandidatesAt(position, last.starts_with('-'))) {
    if (candidate.word.starts_with(last))
      WriteAll(STDOUT_FILENO, OneLine(candidate.word) + '\t' + OneLine(candidate.help) + '\n');
  }
  return Done;
}

}  // namespace

void AddCompleteCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("complete", "For the completion scripts of shells");
  auto& options = SetAction(*command, run, Complete);
  options.program = &app;
  command->group("");  // not listed
  command->add_option("words", options.words,
                      "What is typed, after \"--\"; the last word is to be completed");
}

}  // namespace qvio_tool
