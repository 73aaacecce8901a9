#include "options/record_list.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "util/text.h"

namespace qvio {
namespace {

struct Escape {
  char character;
  std::string_view code;
};
constexpr std::array<Escape, 4> kEscapes{{{'%', "%25"}, {'\n', "%0A"}, {'|', "%7C"}, {'=', "%3D"}}};

std::string WriteRecord(const PropertyRecord& record, const Selection& keys) {
  const bool all = keys.contains(kAllKeys);
  std::vector<std::string> items;
  for (const auto& [key, value] : record) {
    if (all || keys.contains(key)) items.push_back(key + '=' + EscapeValue(value));
  }
  return cppu::Join(items, '|');
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

// Both directions are one pass over the text: no code can come out of the text of another, which is what
// escaping "%" first and reading "%25" last would ensure in passes of their own.
std::string EscapeValue(std::string_view value) {
  std::string escaped;
  escaped.reserve(value.size());
  for (const char character : value) {
    const auto* row = std::ranges::find(kEscapes, character, &Escape::character);
    if (row == kEscapes.end()) {
      escaped += character;
    } else {
      escaped += row->code;
    }
  }
  return escaped;
}

std::string UnescapeValue(std::string_view value) {
  std::string plain;
  plain.reserve(value.size());
  while (!value.empty()) {
    const auto* row = std::ranges::find(kEscapes, value.substr(0, 3), &Escape::code);
    plain += row == kEscapes.end() ? value.front() : row->character;
    value.remove_prefix(row == kEscapes.end() ? 1 : row->code.size());
  }
  return plain;
}

std::string WriteRecordList(const RecordList& records, const Selection& keys) {
  std::vector<std::string> lines;
  for (const auto& record : records) {
    auto line = WriteRecord(record, keys);
    if (!line.empty()) lines.push_back(std::move(line));
  }
  return cppu::Join(lines, '\n');
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
