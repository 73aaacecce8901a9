#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>

#include "commands/commands.h"
#include "commands/option_tree.h"
#include "terminal/output.h"

namespace qvio_tool {
namespace {

struct ManualOptions {
  const CLI::App* program = nullptr;
  std::string command;
};

/// The parts of a command's help that come after its options.
struct Footer {
  std::string text;
  std::string status;
  std::string examples;
};

Footer ReadFooter(const std::string& footer) {
  Footer parts;
  auto* part = &parts.text;
  std::istringstream lines(footer);
  for (std::string line; std::getline(lines, line);) {
    constexpr std::string_view kStatus = "Exit status: ";
    if (line.starts_with(kStatus)) {
      part = &parts.status;
      line.erase(0, kStatus.size());
    } else if (line == "Example:" || line == "Examples:") {
      part = &parts.examples;
      continue;
    }
    *part += line + '\n';
  }
  return parts;
}

/// Text lines of mdoc: a backslash is an escape there, a point at the begin of a line a macro.
std::string Plain(const std::string& text) {
  std::string plain;
  for (const char letter : text) {
    if ((letter == '.' || letter == '\'') && (plain.empty() || plain.back() == '\n')) plain += "\\&";
    plain += letter == '\\' ? "\\e" : std::string(1, letter);
  }
  if (!plain.empty() && plain.back() != '\n') plain += '\n';
  return plain;
}

/// Each sentence begins on a line of its own, as mdoc wants it.
std::string Sentences(std::string text) {
  const auto beginsSentence = [](unsigned char letter) { return std::isupper(letter) != 0 || letter == '"'; };
  for (std::size_t at = 0; (at = text.find(' ', at + 1)) != std::string::npos;) {
    const auto end = text.find_last_not_of(" )", at);
    const auto next = text.find_first_not_of(' ', at);
    if (end == std::string::npos || next == std::string::npos) continue;
    const bool isEnd = std::string_view(".:?").find(text[end]) != std::string_view::npos;
    if (isEnd && beginsSentence(static_cast<unsigned char>(text[next]))) text.replace(at, next - at, "\n");
  }
  return Plain(text);
}

/// "Fl b , Fl -baud Ar text".
std::string Item(const OptionEntry& option) {
  std::string item;
  for (const auto& name : option.names) item += (item.empty() ? "Fl " : " , Fl ") + Plain(name.substr(1));
  std::erase(item, '\n');
  return option.value.empty() ? item : item + " Ar " + option.value;
}

std::string List(const CommandEntry& command) {
  std::string list = ".Bl -tag -width Ds\n";
  for (const auto& place : command.places)
    list += ".It Ar " + place.names.front() + '\n' + Sentences(place.help + '.');
  for (const auto& option : command.options) {
    list += ".It " + Item(option) + '\n' + Sentences(option.help + '.');
    if (!option.choices.empty()) list += Plain("One of " + Joined(option.choices, ", ") + '.');
    if (!option.usual.empty()) list += Plain("Default: " + option.usual + '.');
  }
  return list + ".El\n";
}

std::string Synopsis(const CommandEntry& command) {
  std::string text = ".Nm qvio " + Joined(command.words) + "\n.Op Ar options\n";
  for (const auto& place : command.places)
    text += (place.required ? ".Ar " : ".Op Ar ") + place.names.front() + '\n';
  return text;
}

std::string Section(const char* name, const std::string& text) {
  return text.empty() ? "" : std::string(".Sh ") + name + '\n' + text;
}

std::string Examples(const std::string& text) {
  return text.empty() ? "" : ".Bd -literal\n" + Plain(text) + ".Ed\n";
}

/// A sentence as the description of a name: "Send one request" as "send one request".
std::string Description(std::string help) {
  help.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(help.front())));
  return help;
}

/// The page of a command, with its inner commands.
std::string Page(const CommandEntry& command) {
  const auto name = "qvio-" + Joined(command.words, "-");
  auto title = name;
  std::ranges::transform(title, title.begin(), [](unsigned char letter) { return std::toupper(letter); });
  const auto footer = ReadFooter(command.footer);
  std::string synopsis = command.commands.empty() ? Synopsis(command) : "";
  std::string inner;
  std::string examples = footer.examples;
  for (const auto& one : command.commands) {
    const auto innerFooter = ReadFooter(one.footer);
    synopsis += Synopsis(one);
    inner += ".Ss qvio " + Joined(one.words) + '\n' + Sentences(one.help + '.') +
             Sentences(innerFooter.text) + List(one);
    examples += innerFooter.examples;
  }
  const bool hasOptions = command.commands.empty();
  return ".\\\" Made by qvio from its own options.\n.Dd " QVIO_DATE "\n.Dt " + title +
         " 1\n.Os\n.Sh NAME\n.Nm " + name + "\n.Nd " + Description(command.help) + "\n.Sh SYNOPSIS\n" +
         synopsis + ".Sh DESCRIPTION\n" + Sentences(command.help + '.') + Sentences(footer.text) +
         (hasOptions ? "The options are:\n" + List(command) : inner) +
         Section("EXIT STATUS",
                 Sentences(footer.status) + "All commands share their exit statuses, see\n.Xr qvio 1 .\n") +
         Section("EXAMPLES", Examples(examples)) +
         ".Sh SEE ALSO\n.Xr qvio 1 ,\n.Xr quorvio-locators 7 ,\n.Xr quorvio-options 7\n";
}

/// The commands as they stand in qvio(1).
std::string Commands(const CommandEntry& program) {
  std::string list = ".Bl -tag -width Ds\n";
  for (const auto& command : program.commands)
    list += ".It Xr qvio-" + command.words.front() + " 1\n" + Plain(command.help + '.');
  return list + ".El\n";
}

int Manual(const ManualOptions& options) {
  const auto program = Describe(*options.program);
  const auto found = std::ranges::find_if(
      program.commands, [&](const CommandEntry& entry) { return entry.words.front() == options.command; });
  WriteAll(STDOUT_FILENO, found == program.commands.end() ? Commands(program) : Page(*found));
  return Done;
}

}  // namespace

void AddManualCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("manual", "For the build: the manual page of a command");
  auto& options = SetAction(*command, run, Manual);
  options.program = &app;
  command->group("");  // not listed
  command->add_option("command", options.command, "The command; without, the list of all commands");
}

}  // namespace qvio_tool
