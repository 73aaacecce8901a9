// Texts of the application through the readers of every option set, and as a record list.

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "check.h"
#include "nd/errors.h"
#include "nd/interface_texts.h"
#include "options/option_sets.h"
#include "options/options_map.h"
#include "options/record_list.h"
#include "script.h"
#include "util/failure.h"

namespace {

using namespace qvio;
using cppu::OptionsMap;
using qvfuzz::Check;

/// None when the reader refuses the text.
template <class Set>
std::optional<Set> Read(Set (*reader)(std::string_view), const std::string& text) {
  try {
    return reader(text);
  } catch (const OptionsError&) {
    return {};
  }
}

/// An unknown key matters under `strict` only, and a text that passes `strict` reads the same without.
template <class Set>
std::optional<Set> CheckSet(Set (*reader)(std::string_view), const std::string& text) {
  auto set = Read(reader, text);
  const auto withUnknown = Read(reader, text + "\nno-such-key 1");
  Check(withUnknown.has_value() == (set && !set->strict), "only strict refuses unknown keys");
  Check(!Read(reader, "strict\nno-such-key\n" + text), "strict refuses unknown keys");
  return set;
}

void CheckMap(std::string_view text) {
  const OptionsMap options(text);
  std::string written;
  for (const auto& [key, value] : options.items()) {
    written += key;
    if (!value.empty()) written.append(" ").append(value);
    written += '\n';
  }
  Check(OptionsMap(written).items() == options.items(), "options come back");
}

void CheckInterfaces(const std::vector<std::string>& texts, bool watched) {
  try {
    const auto addresses = watched ? quorvind::ReadWatchedInterfaces(texts) : quorvind::ReadInterfaces(texts);
    Check(std::ranges::adjacent_find(addresses) == addresses.end(), "each interface is read once");
  } catch (const Failure& failure) {
    Check(failure.code() == QV_IO_ERROR_INVALID_ARGUMENT, "a bad interface is an invalid argument");
  } catch (const quorvind::NetworkException&) {
    return;  // the system cannot list its interfaces
  }
}

void CheckOptions(const std::string& text) {
  CheckMap(text);
  CheckSet(ReadSerialOptions, text);
  CheckSet(ReadUsbOptions, text);
  CheckSet(ReadUsbLocatorOptions, text);
  CheckSet(ReadEventOptions, text);
  CheckSet(ReadInterfaceListOptions, text);
  if (const auto set = CheckSet(ReadGlobalOptions, text)) CheckInterfaces(set->discoveryIfaces, true);
  if (const auto set = CheckSet(ReadNetworkOptions, text)) CheckInterfaces(set->ifaces, false);
  if (const auto set = CheckSet(ReadDeviceListOptions, text)) CheckInterfaces(set->ifaces, false);
}

void CheckRecords(std::string_view text) {
  const auto escaped = EscapeValue(text);
  Check(escaped.find_first_of("\n|=") == std::string::npos, "no separator is left in an escaped value");
  Check(UnescapeValue(escaped) == text, "a value comes back");
  RecordList records;
  try {
    records = ReadRecordList(text);
  } catch (const std::invalid_argument&) {
    return;
  }
  Check(ReadRecordList(WriteRecordList(records, {"all"})) == records, "a list comes back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CheckOptions(std::string(qvfuzz::ZeroTerminated({data, size})));
  CheckRecords({reinterpret_cast<const char*>(data), size});
  return 0;
}
