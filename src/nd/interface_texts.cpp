#include "nd/interface_texts.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "nd/connection.h"
#include "util/failure.h"

namespace quorvind {
namespace {

constexpr std::string_view kPrefix = "network:";

/// The word between "network:" and the next ":"; none for a text of another kind.
std::optional<std::string_view> NetworkWord(std::string_view text) {
  if (!text.starts_with(kPrefix)) return {};
  text.remove_prefix(kPrefix.size());
  return text.substr(0, text.find(':'));
}

void Add(std::string_view word, std::vector<IP4>& addresses) {
  if (word == "all") {
    for (const auto& interface : ListInterfaces()) addresses.push_back(interface.address);
    return;
  }
  const auto address = IP4FromString(word);
  qvio::Require(address && *address != IP4{}, QV_IO_ERROR_INVALID_ARGUMENT, "not an interface address: \"%\"",
                {word});
  addresses.push_back(*address);
}

/// None if the off word was read.
std::optional<std::vector<IP4>> Read(std::span<const std::string> texts, std::string_view offWord) {
  std::vector<IP4> addresses;
  for (const auto& text : texts) {
    const auto word = NetworkWord(text);
    if (!word) continue;
    if (!offWord.empty() && *word == offWord) return {};
    Add(*word, addresses);
  }
  // The same address under two texts must not be searched twice.
  std::ranges::sort(addresses);
  addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
  return addresses;
}

}  // namespace

std::vector<IP4> ReadInterfaces(std::span<const std::string> texts) { return *Read(texts, {}); }

std::vector<IP4> ReadWatchedInterfaces(std::span<const std::string> texts) {
  return Read(texts, "none").value_or(std::vector<IP4>{});
}

}  // namespace quorvind
