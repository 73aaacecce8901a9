#include "nd/interface_texts.h"

#include <string_view>

#include "nd/connection.h"
#include "options/result.h"

namespace quorvind {
namespace {

constexpr std::string_view kPrefix = "network:";

/// What stands between "network:" and the next ":"; none for a text of another kind.
std::optional<std::string_view> NetworkWord(std::string_view text) {
  if (!text.starts_with(kPrefix)) return {};
  text.remove_prefix(kPrefix.size());
  return text.substr(0, text.find(':'));
}

void Add(std::string_view word, IP4Set& addresses) {
  if (word == "all") {
    for (const auto& interface : ListInterfaces()) addresses.insert(interface.address);
    return;
  }
  const auto address = IP4FromString(word);
  qvio::Require(address && *address != IP4{}, QV_IO_ERROR_INVALID_ARGUMENT);
  addresses.insert(*address);
}

/// None when the word that switches off was read.
std::optional<IP4Set> Read(std::span<const std::string> texts, std::string_view offWord) {
  IP4Set addresses(kInitialBuckets);
  for (const auto& text : texts) {
    const auto word = NetworkWord(text);
    if (!word) continue;
    if (!offWord.empty() && *word == offWord) return {};
    Add(*word, addresses);
  }
  return addresses;
}

}  // namespace

IP4Set ReadInterfaces(std::span<const std::string> texts) { return *Read(texts, {}); }

std::optional<IP4Set> ReadWatchedInterfaces(std::span<const std::string> texts) {
  return Read(texts, "none");
}

}  // namespace quorvind
