#include "doctor/firewall_rules.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <iomanip>
#include <sstream>
#include <string_view>
#include <utility>

#include "util/lookup.h"
#include "util/text.h"

namespace qvio_tool {
namespace {

using Words = std::vector<std::string>;
using Names = std::pair<std::string_view, std::string_view>;

/// The conditions that are understood, and their keys. Those of other protocols never match a datagram of
/// discovery.
constexpr std::array kNftKeys{
    Names{"iifname", "interface"},  Names{"iif", "interface"},        Names{"meta iifname", "interface"},
    Names{"meta iif", "interface"}, Names{"ip protocol", "protocol"}, Names{"meta l4proto", "protocol"},
    Names{"udp dport", "port"},     Names{"th dport", "port"},        Names{"ct state", "state"},
    Names{"ip daddr", "to"},        Names{"meta pkttype", "kind"},    Names{"pkttype", "kind"},
    Names{"fib daddr", "kind"},     Names{"meta nfproto", "family"},  Names{"tcp", "never"},
    Names{"icmp", "never"},         Names{"icmpv6", "never"},         Names{"igmp", "never"},
    Names{"ip6", "never"}};
constexpr std::array kIptablesKeys{
    Names{"-i", "interface"},  Names{"-p", "protocol"},     Names{"--dport", "port"},
    Names{"--dports", "port"}, Names{"--state", "state"},   Names{"--ctstate", "state"},
    Names{"-d", "to"},         Names{"--pkt-type", "kind"}, Names{"--dst-type", "kind"}};

constexpr std::array<std::string_view, 6> kLogWords{"prefix", "level",   "group",
                                                    "flags",  "snaplen", "queue-threshold"};
constexpr std::array<std::string_view, 7> kTargetsThatGoOn{"log",   "nflog", "mark",    "connmark",
                                                           "trace", "ct",    "checksum"};
constexpr const char* kNotUnderstood = "?";  // a verdict

bool IsOneOf(std::string_view word, const auto& words) {
  return std::ranges::find(words, word) != words.end();
}

std::string Lower(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

/// The words of a rule, one after the other; past the end they are empty.
class Reader {
 public:
  /// Quoted texts are one word.
  explicit Reader(const std::string& line) {
    std::istringstream in(line);
    for (std::string word; in >> std::quoted(word);) words_.push_back(word);
  }
  [[nodiscard]] bool atEnd() const { return next_ >= words_.size(); }
  [[nodiscard]] std::string peek(std::size_t ahead = 0) const {
    return next_ + ahead < words_.size() ? words_[next_ + ahead] : "";
  }
  std::string take() {
    auto word = peek();
    ++next_;
    return word;
  }
  bool takeIf(std::string_view word) {
    const bool isNext = peek() == word;
    if (isNext) ++next_;
    return isNext;
  }

 private:
  Words words_;
  std::size_t next_ = 0;
};

Words SplitList(const std::string& list) {
  Words values;
  for (const auto value : cppu::Split(list, ',')) values.emplace_back(cppu::Trim(value));
  return values;
}

/// A value, or a set of them: { 65110, 65111 }.
Words TakeNftValues(Reader& reader) {
  auto list = reader.take();
  if (list != "{") return SplitList(list);
  list.clear();
  while (!reader.atEnd() && !reader.takeIf("}")) list += reader.take() + ' ';
  return SplitList(list);
}

/// "ct state vmap { established : accept, invalid : drop }": the values, whose verdicts are not looked at.
Words KeysOfMap(const Words& elements) {
  Words keys;
  for (const auto& element : elements) keys.emplace_back(cppu::Trim(element.substr(0, element.find(':'))));
  return keys;
}

const std::string_view* TakeNftKey(Reader& reader) {
  if (const auto* const key = cppu::Lookup(kNftKeys, reader.peek() + ' ' + reader.peek(1))) {
    reader.take();
    reader.take();
    return key;
  }
  const auto* const key = cppu::Lookup(kNftKeys, reader.peek());
  if (key != nullptr) reader.take();
  return key;
}

FirewallRule ReadNftRule(const std::string& line) {
  FirewallRule rule;
  Reader reader(line);
  while (!reader.atEnd() && rule.verdict.empty()) {
    if (const auto* const key = TakeNftKey(reader)) {
      reader.takeIf("type");
      const bool isNegated = reader.takeIf("!=");
      const bool isMap = reader.takeIf("vmap");
      auto values = TakeNftValues(reader);
      if (isMap) rule.verdict = kNotUnderstood;
      rule.conditions.push_back({std::string(*key), isMap ? KeysOfMap(values) : values, isNegated});
      continue;
    }
    const auto word = reader.take();
    if (word == "accept" || word == "drop" || word == "return") {
      rule.verdict = word;
    } else if (word == "reject") {
      rule.verdict = "drop";
    } else if (word == "jump" || word == "goto") {
      rule.verdict = reader.take();
      rule.comesBack = word == "jump";
    } else if (word == "comment") {
      reader.take();
    } else if (word == "counter") {
      for (const auto* const part : {"packets", "bytes"})
        if (reader.takeIf(part)) reader.take();
    } else if (word == "log") {
      while (IsOneOf(reader.peek(), kLogWords)) reader.take(), reader.take();
    } else {
      rule.conditions.emplace_back();
    }
  }
  return rule;
}

FirewallRule ReadIptablesRule(Reader& reader) {
  FirewallRule rule;
  while (!reader.atEnd()) {
    const bool isNegated = reader.takeIf("!");
    const auto word = reader.take();
    if (word == "-j" || word == "-g") {
      const auto target = reader.take();
      const auto verdict = Lower(target);
      if (verdict == "reject") {
        rule.verdict = "drop";
      } else if (verdict == "accept" || verdict == "drop" || verdict == "return") {
        rule.verdict = verdict;
      } else if (!IsOneOf(verdict, kTargetsThatGoOn)) {
        rule.verdict = target;
        rule.comesBack = word == "-j";
      }
      return rule;  // what follows are options of the target
    }
    if (word == "-m" || word == "--comment") {
      reader.take();
    } else if (const auto* const key = cppu::Lookup(kIptablesKeys, word)) {
      rule.conditions.push_back({std::string(*key), SplitList(reader.take()), isNegated});
    } else {
      rule.conditions.emplace_back();
    }
  }
  return rule;
}

void ReadNftLine(const std::string& line, FirewallChain& chain) {
  if (!line.starts_with("type ")) {
    chain.rules.push_back(ReadNftRule(line));
    return;
  }
  chain.isFirst =
      line.starts_with("type filter hook input") || line.starts_with("type filter hook prerouting");
  chain.dropsAtEnd = line.find("policy drop") != std::string::npos;
}

/// Long sets go on over several lines; each but the last ends with a comma.
std::string TakeLine(std::istream& in) {
  std::string whole;
  for (std::string line; std::getline(in, line);) {
    whole += std::string(cppu::Trim(line)) + ' ';
    if (!cppu::Trim(line).ends_with(',')) break;
  }
  return std::string(cppu::Trim(whole));
}

Firewall ReadNft(const std::string& text) {
  Firewall firewall;
  std::istringstream in(text);
  std::string table;
  bool isInChain = false;
  while (in) {
    const auto line = TakeLine(in);
    Reader reader(line);
    if (reader.takeIf("table")) {
      table = reader.peek() + ' ' + reader.peek(1);
    } else if (reader.takeIf("chain")) {
      isInChain = table.starts_with("ip ") || table.starts_with("inet ");
      if (isInChain) firewall.chains.push_back({table, reader.peek(), false, false, {}});
    } else if (line == "}") {
      isInChain = false;
    } else if (isInChain && !line.empty()) {
      ReadNftLine(line, firewall.chains.back());
    }
  }
  return firewall;
}

Firewall ReadIptables(const std::string& text) {
  Firewall firewall{.isIptables = true, .chains = {}};
  std::istringstream in(text);
  std::string table;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with('*')) table = line.substr(1);
    Reader reader(line);
    if (line.starts_with(':')) {
      const auto name = reader.take().substr(1);
      const bool isFirst = table != "nat" && (name == "INPUT" || name == "PREROUTING");
      firewall.chains.push_back({table, name, isFirst, reader.peek() == "DROP", {}});
    } else if (reader.takeIf("-A")) {
      const auto name = reader.take();
      for (auto& chain : firewall.chains)
        if (chain.table == table && chain.name == name) chain.rules.push_back(ReadIptablesRule(reader));
    }
  }
  return firewall;
}

}  // namespace

Firewall ReadFirewall(const std::string& text) {
  const bool isIptables = text.starts_with('*') || text.find("\n*") != std::string::npos;
  return isIptables ? ReadIptables(text) : ReadNft(text);
}

}  // namespace qvio_tool
