#include "sim/ftdi/chip_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <set>
#include <utility>

#include "util/lookup.h"
#include "util/text.h"

namespace qvsim {

const char* const kDefaultChips =
    "desc=\"Quorvi DRV-I\" serial=QV100001 pid=0x6001 type=5 ua=5156494f01 protocol-id=1\n"
    "desc=\"Quorvi DRV2\" serial=QV100002 pid=0x6014 type=8 flags=2 ua=5156494f0a protocol-id=1\n"
    "desc=\"Quorvi Sensor\" serial=QV100003 pid=0x6001 type=5 ua=5156494f01 protocol-id=1\n"
    "desc=\"Quorvi AXU-3D\" serial=QV100004 pid=0x6001 type=5 protocol-id=1\n";

namespace {

[[noreturn]] void Refuse(const std::string& reason) { throw std::invalid_argument(reason); }

uint32_t Number(std::string_view text, uint32_t largest = std::numeric_limits<uint32_t>::max()) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  const auto digits = text.substr(isHex ? 2 : 0);
  const auto* const end = digits.data() + digits.size();
  uint32_t value = 0;
  const auto [rest, error] = std::from_chars(digits.data(), end, value, isHex ? 16 : 10);
  if (error != std::errc{} || rest != end || value > largest)
    Refuse("not a number up to " + std::to_string(largest) + ": " + std::string(text));
  return value;
}

std::string HexBytes(std::string_view text) {
  std::string bytes;
  if (text.size() % 2 != 0) Refuse("not hex bytes: " + std::string(text));
  for (std::size_t at = 0; at < text.size(); at += 2)
    bytes += static_cast<char>(Number("0x" + std::string(text.substr(at, 2)), 0xff));
  return bytes;
}

std::string UpTo(std::size_t longest, std::string_view text) {
  if (text.size() > longest) Refuse("longer than " + std::to_string(longest) + " characters");
  return std::string(text);
}

ChipDescription::Link Link(std::string_view text) {
  if (text == "protocol") return ChipDescription::Link::Protocol;
  if (text != "echo") Refuse("link is protocol or echo, not " + std::string(text));
  return ChipDescription::Link::Echo;
}

using Field = std::pair<std::string_view, void (*)(ChipDescription& chip, std::string_view value)>;

constexpr uint32_t kLargestWord = 0xffff;
constexpr std::array<Field, 11> kFields{{
    {"desc", [](auto& chip, auto value) { chip.description = UpTo(64, value); }},
    {"serial", [](auto& chip, auto value) { chip.serialNumber = UpTo(16, value); }},
    {"vid", [](auto& chip, auto value) { chip.vendorId = Number(value, kLargestWord); }},
    {"pid", [](auto& chip, auto value) { chip.productId = Number(value, kLargestWord); }},
    {"type", [](auto& chip, auto value) { chip.type = Number(value); }},
    {"flags", [](auto& chip, auto value) { chip.flags = Number(value); }},
    {"location", [](auto& chip, auto value) { chip.location = Number(value); }},
    {"chip-id",
     [](auto& chip, auto value) {
       chip.chipId = value == "none" ? std::nullopt : std::optional(Number(value));
     }},
    {"ua", [](auto& chip, auto value) { chip.userArea = HexBytes(value); }},
    {"link", [](auto& chip, auto value) { chip.link = Link(value); }},
    {"protocol-id",
     [](auto& chip, auto value) { chip.protocolId = static_cast<uint8_t>(Number(value, 0xff)); }},
}};

void Set(ChipDescription& chip, std::string_view name, std::string_view value) {
  const auto* const read = cppu::Lookup(kFields, name);
  if (read == nullptr) Refuse("unknown field " + std::string(name));
  (*read)(chip, value);
}

/// Takes a value, quoted or up to a blank, off the text's front.
std::string_view TakeValue(std::string_view& text) {
  const bool isQuoted = text.starts_with('"') || text.starts_with('\'');
  const auto begin = isQuoted ? 1U : 0U;
  const auto end = isQuoted ? text.find(text.front(), 1) : std::min(text.find_first_of(" \t"), text.size());
  if (end == std::string_view::npos) Refuse("a quote has no end");
  const auto value = text.substr(begin, end - begin);
  text.remove_prefix(end + begin);
  if (!text.empty() && text.find_first_of(" \t") != 0) Refuse("no blank after a value");
  return value;
}

/// @param position  of the chip among all; location and chip id follow from it when they are not given
ChipDescription ReadChip(std::string_view line, uint32_t position) {
  ChipDescription chip;
  chip.location = 0x201 + position;
  chip.chipId = 0xC0DE0001 + position;
  std::set<std::string_view> seen;
  for (auto rest = line; !rest.empty() && rest.front() != '#'; rest = cppu::Trim(rest)) {
    const auto name = rest.substr(0, rest.find_first_of("= \t"));
    rest.remove_prefix(name.size());
    if (!seen.insert(name).second) Refuse("twice: " + std::string(name));
    if (name == "held" && !rest.starts_with('=')) {
      chip.held = true;
      continue;
    }
    if (!rest.starts_with('=')) Refuse("no value: " + std::string(name));
    rest.remove_prefix(1);
    Set(chip, name, TakeValue(rest));
  }
  if (!seen.contains("desc") || !seen.contains("serial")) Refuse("desc and serial must be given");
  return chip;
}

}  // namespace

std::vector<ChipDescription> ReadChips(std::string_view text) {
  std::vector<ChipDescription> chips;
  std::size_t number = 0;
  for (const auto piece : cppu::Split(text, '\n')) {
    ++number;
    const auto line = cppu::Trim(piece);
    if (line.empty() || line.front() == '#') continue;
    try {
      chips.push_back(ReadChip(line, static_cast<uint32_t>(chips.size())));
    } catch (const std::invalid_argument& failure) {
      throw BadChipText(number, failure.what());
    }
  }
  return chips;
}

}  // namespace qvsim
