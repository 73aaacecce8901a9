// Option texts through the reader of every set, and their values through what reads them further.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

#include "check.h"
#include "nd/errors.h"
#include "nd/interface_texts.h"
#include "options/option_sets.h"
#include "options/options_map.h"
#include "options/result.h"
#include "script.h"
#include "util/ip4.h"
#include "util/number.h"

namespace {

using namespace qvio;
using cppu::OptionsMap;
using qvfuzz::Check;

/// What the reader makes of the text; none when it refuses.
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

template <class Value>
bool IsDistinct(std::vector<Value> values) {
  std::ranges::sort(values);
  return std::ranges::adjacent_find(values) == values.end();
}

/// The number by the C library's reading, which wraps negative ones around.
std::optional<uint32_t> Number(const std::string& text) {
  if (text.find_first_not_of(" \t\n\v\f\r") != std::string::npos &&
      text[text.find_first_not_of(" \t\n\v\f\r")] == '-')
    return {};
  errno = 0;
  char* end = nullptr;
  const auto value = std::strtoull(text.c_str(), &end, 10);
  if (end == text.c_str() || errno != 0 || value > std::numeric_limits<uint32_t>::max()) return {};
  return static_cast<uint32_t>(value);
}

std::optional<bool> Boolean(const std::string& text) {
  if (text.empty() || text == "true" || text == "on" || text == "1") return true;
  if (text == "false" || text == "off" || text == "0") return false;
  return {};
}

/// The set of serial ports, read a second time in the simplest way.
void CheckSerial(const OptionsMap& options, const std::optional<SerialOptions>& set) {
  const auto value = [&](std::string_view key, const char* unset) {
    const auto* const item = options.find(key);
    return item != nullptr ? item->value : unset;
  };
  const auto strict = Boolean(value("strict", "off"));
  const auto baudrate = Number(value("baudrate", "0"));
  const auto xonxoff = Boolean(value("xonxoff", "off"));
  const bool allKnown = std::ranges::all_of(options.items(), [](const auto& item) {
    return item.key == "strict" || item.key == "baudrate" || item.key == "xonxoff";
  });
  const bool good = strict && baudrate && xonxoff && (!*strict || allKnown);
  Check(set.has_value() == good, "a set is refused for its values and unknown keys alone");
  if (set)
    Check(set->baudrate == *baudrate && set->xonxoff == *xonxoff && set->strict == *strict,
          "the first line with a key counts");
}

void CheckMap(const OptionsMap& options) {
  std::string written;
  for (const auto& [key, value] : options.items()) {
    written += key;
    if (!value.empty()) written.append(" ").append(value);
    written += '\n';
  }
  Check(OptionsMap(written).items() == options.items(), "options come back");
}

template <class Action>
void RefusesOnlyNumbers(Action action) {
  try {
    action();
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }
}

void CheckValue(const std::string& value) {
  RefusesOnlyNumbers([&] { Check(cppu::ToUint32(value) == Number(value), "numbers are read as always"); });
  RefusesOnlyNumbers([&] { (void)cppu::ToInt32(value); });
  RefusesOnlyNumbers([&] { Check(cppu::ToBool(value) == Boolean(value), "there are seven boolean words"); });
  if (const auto address = quorvind::IP4FromString(value))
    Check(quorvind::IP4ToString(*address) == value, "an address is written as it was read");
}

void CheckInterfaces(const std::vector<std::string>& texts, bool watched) {
  try {
    watched ? void(quorvind::ReadWatchedInterfaces(texts)) : void(quorvind::ReadInterfaces(texts));
  } catch (const Failure& failure) {
    Check(failure.code() == QV_IO_ERROR_INVALID_ARGUMENT, "a bad interface is an invalid argument");
  } catch (const quorvind::NetworkException&) {
  }
}

void CheckDeviceList(const DeviceListOptions& options) {
  Check(
      IsDistinct(options.ifaceTypes) && IsDistinct(options.findUsbPids) && IsDistinct(options.findDeviceSns),
      "a list holds each value once");
  CheckInterfaces(options.ifaces, false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(qvfuzz::ZeroTerminated({data, size}));
  const OptionsMap options(text);
  CheckMap(options);
  for (const auto& item : options.items()) CheckValue(item.value);
  CheckSerial(options, CheckSet(ReadSerialOptions, text));
  CheckSet(ReadUsbOptions, text);
  CheckSet(ReadUsbLocatorOptions, text);
  CheckSet(ReadEventOptions, text);
  if (const auto set = CheckSet(ReadGlobalOptions, text)) CheckInterfaces(set->discoveryIfaces, true);
  if (const auto set = CheckSet(ReadNetworkOptions, text)) CheckInterfaces(set->ifaces, false);
  if (const auto set = CheckSet(ReadDeviceListOptions, text)) CheckDeviceList(*set);
  if (const auto set = CheckSet(ReadInterfaceListOptions, text))
    Check(set->only.size() <= 1, "one key alone is written plain");
  return 0;
}
