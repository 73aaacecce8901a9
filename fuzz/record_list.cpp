// Record lists: any text is read or refused, and what is written comes back, whatever the values hold.

#include <stdexcept>
#include <string>

#include "check.h"
#include "options/record_list.h"
#include "script.h"

namespace {

using namespace qvio;
using qvfuzz::Check;
using qvfuzz::Script;

const Selection kEverything{"all"};

void CheckAsText(std::string_view text) {
  RecordList records;
  try {
    records = ReadRecordList(text);
  } catch (const std::invalid_argument& refusal) {
    Check(std::string_view(refusal.what()) == "Invalid format", "a refused list says so");
    return;
  }
  const auto written = WriteRecordList(records, kEverything);
  Check(ReadRecordList(written) == records, "a list that was read comes back");
  Check(WriteRecordList(ReadRecordList(written), kEverything) == written, "a written list stays as it is");
}

constexpr const char* kKeys[] = {"locator", "device-info", "k", ""};

PropertyRecord MakeRecord(Script& script) {
  PropertyRecord record;
  for (auto items = script.below(4); items > 0; --items) {
    const std::string key = script.oneOf(kKeys);
    const std::string value(script.text());
    const auto escaped = EscapeValue(value);
    Check(escaped.find_first_of("\n|=") == std::string::npos, "no separator is left in an escaped value");
    Check(UnescapeValue(escaped) == value, "a value comes back");
    record.insert_or_assign(key, value);
  }
  return record;
}

/// What is left of the list when only the key is written.
RecordList Reduced(const RecordList& records, const std::string& key) {
  RecordList reduced;
  for (const auto& record : records) {
    if (const auto found = record.find(key); found != record.end()) reduced.push_back({*found});
  }
  return reduced;
}

void CheckAsRecords(Script script) {
  RecordList records;
  while (!script.ended()) records.push_back(MakeRecord(script));
  for (const std::string key : kKeys) {
    const auto wanted = Reduced(records, key);
    Check(ReadRecordList(WriteRecordList(records, {key})) == wanted, "the records with a key come back");
    std::size_t size = wanted.empty() ? 0 : wanted.size() - 1;
    for (const auto& record : wanted) size += record.begin()->second.size();
    Check(WriteValues(records, key).size() == size, "values are written plain, one a line");
  }
  std::erase_if(records, [](const PropertyRecord& record) { return record.empty(); });
  Check(ReadRecordList(WriteRecordList(records, kEverything)) == records, "all records come back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CheckAsText({reinterpret_cast<const char*>(data), size});
  CheckAsRecords(Script({data, size}));
  return 0;
}
