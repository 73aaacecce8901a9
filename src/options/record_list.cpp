#include "options/record_list.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "util/text.h"

namespace qvio {
namespace {

struct Escape {
  char character;
  std::string_view code;
};
constexpr std::array<Escape, 4> kEscapes{{{'%', "%25"}, {'\n', "%0A"}, {'|', "%7C"}, {'=', "%3D"}}};

// Escaping and unescaping each take one pass, so that a replacement is never replaced again.
void AppendEscaped(std::string& text, std::string_view value) {
  for (const char character : value) {
    const auto* row = std::ranges::find(kEscapes, character, &Escape::character);
    row == kEscapes.end() ? text += character : text += row->code;
  }
}

/// Appends to the text of the whole list; a temporary text for each record would double the time.
void AppendRecord(std::string& text, const PropertyRecord& record, const Selection& keys) {
  const bool all = keys.contains(kAllKeys);
  bool newLine = true;
  for (const auto& [key, value] : record) {
    // The line break comes with the first key: a record without a selected key must not leave an empty line.
    if (!all && !keys.contains(key)) continue;
    if (!text.empty()) text += newLine ? '\n' : '|';
    newLine = false;
    text.append(key) += '=';
    AppendEscaped(text, value);
  }
}

PropertyRecord ReadRecord(std::string_view line) {
  PropertyRecord record;
  for (const auto item : cppu::Split(line, '|')) {
    const auto parts = cppu::Split(item, '=');
    if (parts.size() != 2) throw std::invalid_argument("Invalid format");
    record.emplace(parts[0], UnescapeValue(parts[1]));
  }
  return record;
}

}  // namespace

std::string EscapeValue(std::string_view value) {
  std::string escaped;
  AppendEscaped(escaped, value);
  return escaped;
}

std::string UnescapeValue(std::string_view value) {
  std::string plain;
  plain.reserve(value.size());
  while (!value.empty()) {
    // All codes have 3 characters.
    const auto* row = std::ranges::find(kEscapes, value.substr(0, 3), &Escape::code);
    plain += row == kEscapes.end() ? value.front() : row->character;
    value.remove_prefix(row == kEscapes.end() ? 1 : row->code.size());
  }
  return plain;
}

std::string WriteRecordList(const RecordList& records, const Selection& keys) {
  std::string text;
  for (const auto& record : records) AppendRecord(text, record, keys);
  return text;
}

RecordList ReadRecordList(std::string_view text) {
  if (text.empty()) return {};
  RecordList records;
  for (const auto line : cppu::Split(text, '\n')) records.push_back(ReadRecord(line));
  return records;
}

std::string WriteValues(const RecordList& records, std::string_view key) {
  std::vector<std::string_view> values;
  for (const auto& record : records) {
    if (const auto found = record.find(key); found != record.end()) values.emplace_back(found->second);
  }
  return cppu::Join(values, '\n');
}

}  // namespace qvio
