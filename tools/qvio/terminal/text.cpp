#include "terminal/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cwchar>
#include <nlohmann/json.hpp>
#include <utility>

#include "terminal/failure.h"
#include "util/lookup.h"

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
    throw CommandFailure("not hexadecimal: " + OneLine(two), WrongUsage);
  }
  return static_cast<char>(value);
}

/// Marks that change the direction of the text after them, so that it looks like another text.
bool IsDirectionMark(wchar_t character) {
  constexpr std::array<std::pair<wchar_t, wchar_t>, 4> kMarks{
      {{0x061C, 0x061C}, {0x200E, 0x200F}, {0x202A, 0x202E}, {0x2066, 0x2069}}};
  return std::ranges::any_of(
      kMarks, [&](const auto& range) { return character >= range.first && character <= range.second; });
}

/// Moves the first character of a text that is not empty to the end of another, escaped unless it is
/// harmless.
void MoveCharacter(std::string_view& from, std::string& to) {
  wchar_t wide = 0;
  std::mbstate_t state{};
  const auto length = std::mbrtowc(&wide, from.data(), from.size(), &state);
  const bool isCharacter = length > 0 && length <= from.size();  // else a zero byte, or not text
  const auto bytes = from.substr(0, isCharacter ? length : 1);
  if (isCharacter && ::wcwidth(wide) >= 0 && !IsDirectionMark(wide)) {
    to += bytes;
  } else {
    for (const char byte : bytes) to += "\\x" + HexByte(byte);
  }
  from.remove_prefix(bytes.size());
}

}  // namespace

std::string FromHex(std::string_view text) {
  std::string bytes;
  while (!text.empty()) {
    if (text.front() == ' ' || text.front() == '\t' || text.front() == '\r' || text.front() == '\n') {
      text.remove_prefix(1);
      continue;
    }
    if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
    bytes += ByteOf(text);
    text.remove_prefix(2);
  }
  return bytes;
}

std::string HexRow(uint64_t offset, std::string_view bytes, std::size_t bytesInRow) {
  std::array<char, 24> begin{};
  std::snprintf(begin.data(), begin.size(), "%08" PRIX64 " ", offset);
  std::string row = begin.data();
  for (const char byte : bytes) row += ' ' + HexByte(byte);
  row.append((bytesInRow - bytes.size()) * 3 + 2, ' ');
  row += '|';
  for (const char byte : bytes) row += byte >= ' ' && byte <= '~' ? byte : '.';
  return row + '|';
}

std::string FromEscaped(std::string_view text) {
  constexpr std::array<std::pair<char, char>, 4> kEscapes{
      {{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'\\', '\\'}}};
  std::string plain;
  while (!text.empty()) {
    if (text.front() != '\\') {
      plain += text.front();
      text.remove_prefix(1);
      continue;
    }
    const char escape = text.size() > 1 ? text[1] : '\0';
    const auto* const known = cppu::Lookup(kEscapes, escape);
    if (known == nullptr && escape != 'x') {
      throw CommandFailure("unknown escape in \"" + OneLine(text) + R"("; use \n, \r, \t, \\ or \xNN)",
                           WrongUsage);
    }
    plain += known == nullptr ? ByteOf(text.substr(2)) : *known;
    text.remove_prefix(known == nullptr ? 4 : 2);
  }
  return plain;
}

std::string OneLine(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) MoveCharacter(bytes, text);
  return text;
}

std::string Printable(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    if (bytes.starts_with("\r\n")) bytes.remove_prefix(1);
    if (bytes.front() == '\t' || bytes.front() == '\n') {
      text += bytes.front();
      bytes.remove_prefix(1);
    } else {
      MoveCharacter(bytes, text);
    }
  }
  return text;
}

std::string JsonText(const nlohmann::ordered_json& value, int indent) {
  return value.dump(indent, ' ', true, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace qvio_tool
