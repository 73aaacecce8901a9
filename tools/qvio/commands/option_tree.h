#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace qvio_tool {

/// An option, or an argument by place, as the parser knows it.
struct OptionEntry {
  std::vector<std::string> names;  ///< "-b", "--baud"; of an argument by place its one name
  std::string help;
  std::string value;                 ///< what it takes, "text" for example; empty: nothing
  std::vector<std::string> choices;  ///< of the value; empty: not limited
  std::string usual;                 ///< the default; empty: none to speak of
  bool required = false;
};

/// A command and what can be typed after it: the one source of completions and manual pages.
struct CommandEntry {
  std::vector<std::string> words;  ///< "config", "get"; none: the program
  std::string help;
  std::string footer;
  std::vector<OptionEntry> options;
  std::vector<OptionEntry> places;
  std::vector<CommandEntry> commands;
};

/// Without the commands that help does not list.
CommandEntry Describe(const CLI::App& program);

/// The words with a separator between them.
std::string Joined(const std::vector<std::string>& words, const char* separator = " ");

}  // namespace qvio_tool
