#include "text_codec.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cwchar>

#include "result_text.h"

namespace qvio_tool {
namespace {

std::string HexByte(char byte) {
  std::array<char, 3> text{};
  std::snprintf(text.data(), text.size(), "%02X", static_cast<unsigned char>(byte));
  return text.data();
}

/// The byte that the first two characters name in hexadecimal.
char ByteOf(std::string_view digits) {
  unsigned value = 0;
  const auto two = digits.substr(0, 2);
  const auto [end, error] = std::from_chars(two.data(), two.data() + two.size(), value, 16);
  if (two.size() != 2 || error != std::errc{} || end != two.data() + 2) {
    throw CommandFailure("not hexadecimal: " + std::string(two));
  }
  return static_cast<char>(value);
}

/// The first character of a text, which must not be empty.
struct Character {
  std::string_view bytes;
  int columns;  ///< below 0: not printable
};

Character FirstCharacter(std::string_view text) {
  wchar_t wide = 0;
  std::mbstate_t state{};
  const auto length = std::mbrtowc(&wide, text.data(), text.size(), &state);
  if (length == 0 || length > text.size()) return {text.substr(0, 1), -1};  // a zero byte, or no character
  return {text.substr(0, length), ::wcwidth(wide)};
}

bool IsControl(char character) { return static_cast<unsigned char>(character) < ' ' || character == '\x7f'; }

}  // namespace

std::string FromHex(std::string_view text) {
  std::string bytes;
  while (!text.empty()) {
    if (text.front() == ' ' || text.front() == '\t' || text.front() == '\r' || text.front() == '\n') {
      text.remove_prefix(1);
      continue;
    }
    bytes += ByteOf(text);
    text.remove_prefix(2);
  }
  return bytes;
}

std::string ToHex(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) text += (text.empty() ? "" : " ") + HexByte(byte);
  return text;
}

std::string FromEscaped(std::string_view text) {
  static const std::map<char, char> kEscapes{{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'\\', '\\'}};
  std::string plain;
  while (!text.empty()) {
    if (text.front() != '\\') {
      plain += text.front();
      text.remove_prefix(1);
      continue;
    }
    const char escape = text.size() > 1 ? text[1] : '\0';
    const auto known = kEscapes.find(escape);
    if (known == kEscapes.end() && escape != 'x') {
      throw CommandFailure("unknown escape in \"" + std::string(text) +
                           R"("; there are \n, \r, \t, \\ and \xNN)");
    }
    plain += escape == 'x' ? ByteOf(text.substr(2)) : known->second;
    text.remove_prefix(escape == 'x' ? 4 : 2);
  }
  return plain;
}

std::string Printable(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char byte = bytes[i];
    if (byte == '\r' && bytes.substr(i + 1, 1) == "\n") continue;
    if (!IsControl(byte) || byte == '\t' || byte == '\n') {
      text += byte;
    } else {
      text += "\\x" + HexByte(byte);
    }
  }
  return text;
}

std::string OneLine(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const auto character = FirstCharacter(bytes);
    if (character.columns >= 0) text += character.bytes;
    for (const char byte : character.columns < 0 ? character.bytes : "") text += "\\x" + HexByte(byte);
    bytes.remove_prefix(character.bytes.size());
  }
  return text;
}

std::size_t ColumnsOf(std::string_view text) {
  std::size_t columns = 0;
  while (!text.empty()) {
    const auto character = FirstCharacter(text);
    columns += static_cast<std::size_t>(std::max(character.columns, 0));
    text.remove_prefix(character.bytes.size());
  }
  return columns;
}

std::string CutToColumns(std::string_view text, std::size_t columns) {
  if (ColumnsOf(text) <= columns) return std::string(text);
  const auto dots = std::string_view("...").substr(0, columns);
  std::size_t left = columns - dots.size();
  std::string cut;
  for (;;) {
    const auto character = FirstCharacter(text);
    const auto needed = static_cast<std::size_t>(std::max(character.columns, 0));
    if (needed > left) return cut.append(dots);
    cut += character.bytes;
    left -= needed;
    text.remove_prefix(character.bytes.size());
  }
}

}  // namespace qvio_tool
