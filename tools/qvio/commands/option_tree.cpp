#include "commands/option_tree.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace qvio_tool {
namespace {

/// "TEXT:{cr,lf}" has the choices cr and lf.
std::vector<std::string> ChoicesOf(const std::string& type) {
  const auto begin = type.find('{');
  if (begin == std::string::npos) return {};
  std::istringstream list(type.substr(begin + 1, type.find('}') - begin - 1));
  std::vector<std::string> choices;
  for (std::string choice; std::getline(list, choice, ',');) choices.push_back(choice);
  return choices;
}

/// "UINT:INT in [1 - 5]" as "number".
std::string ValueOf(const std::string& type) {
  auto word = type.substr(0, type.find_first_of(": "));
  if (word == "UINT" || word == "FLOAT") return "number";
  if (type.find(":FILE") != std::string::npos) return "file";
  if (type.find(":DIR") != std::string::npos) return "folder";
  std::ranges::transform(word, word.begin(), [](unsigned char letter) { return std::tolower(letter); });
  return word;
}

OptionEntry EntryOf(const CLI::Option& option) {
  OptionEntry entry;
  for (const auto& name : option.get_snames()) entry.names.push_back('-' + name);
  for (const auto& name : option.get_lnames()) entry.names.push_back("--" + name);
  if (option.get_positional()) entry.names = {option.get_name()};
  entry.help = option.get_description();
  if (option.get_items_expected_max() > 0) entry.value = ValueOf(option.get_type_name());
  entry.choices = ChoicesOf(option.get_type_name());
  entry.usual = option.get_default_str();
  entry.required = option.get_required();
  return entry;
}

CommandEntry DescribeBelow(const CLI::App& command, std::vector<std::string> words) {
  CommandEntry entry{std::move(words), command.get_description(), command.get_footer(), {}, {}, {}};
  for (const auto* const option : command.get_options())
    (option->get_positional() ? entry.places : entry.options).push_back(EntryOf(*option));
  const auto isListed = [](const CLI::App* inner) { return !inner->get_group().empty(); };
  for (const auto* const inner : command.get_subcommands(isListed)) {
    auto innerWords = entry.words;
    innerWords.push_back(inner->get_name());
    entry.commands.push_back(DescribeBelow(*inner, std::move(innerWords)));
  }
  return entry;
}

}  // namespace

CommandEntry Describe(const CLI::App& program) { return DescribeBelow(program, {}); }

std::string Joined(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

}  // namespace qvio_tool
