// The rules that arriving datagrams meet. What a rule means is read only as far as discovery needs it;
// anything else counts as "may match", so that the answer may be unsure but is not wrong.

#include "doctor/firewall.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <utility>

#include "doctor/checks.h"
#include "doctor/subnet.h"
#include "nd/network_socket.h"
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
constexpr const char* kAnything = "?";  // a verdict that is not understood

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
      if (isMap) rule.verdict = kAnything;
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

enum class Match { No, Maybe, Yes };

bool IsInRange(const std::string& port, const std::string& range) {
  const auto separator = range.find_first_of("-:");
  const auto number = [](const std::string& text) { return std::strtoul(text.c_str(), nullptr, 10); };
  if (separator == std::string::npos) return port == range;
  return number(range) <= number(port) && number(port) <= number(range.substr(separator + 1));
}

bool IsInNetwork(const quorvind::IP4& address, const std::string& network) {
  const auto slash = network.find('/');
  const auto base = quorvind::IP4FromString(network.substr(0, slash));
  const auto ones = slash == std::string::npos ? 32 : std::strtoul(network.c_str() + slash + 1, nullptr, 10);
  if (!base || ones > 32) return false;
  quorvind::IP4 mask{};
  for (unsigned bit = 0; bit < ones; ++bit) mask.at(bit / 8) |= static_cast<uint8_t>(0x80U >> bit % 8);
  return IsInSubnet(address, *base, mask);
}

Match MatchOf(const std::string& key, const std::string& value, const Datagram& datagram) {
  const auto yesIf = [](bool matches) { return matches ? Match::Yes : Match::No; };
  if (key.empty() || value.starts_with('@')) return Match::Maybe;  // '@': a set with a name
  if (key == "interface")
    return yesIf(value == datagram.interface ||
                 ((value.ends_with('*') || value.ends_with('+')) &&
                  datagram.interface.starts_with(value.substr(0, value.size() - 1))));
  if (key == "protocol") return yesIf(value == "udp" || value == "17" || value == "all");
  if (key == "port") return yesIf(IsInRange(datagram.port, value));
  if (key == "state") return yesIf(Lower(value) == "new");
  if (key == "to") return yesIf(IsInNetwork(datagram.to, value));
  if (key == "kind") return yesIf(Lower(value) == datagram.kind);
  return yesIf(key == "family" && value == "ipv4");
}

Match MatchOf(const FirewallCondition& condition, const Datagram& datagram) {
  auto best = condition.values.empty() && condition.key.empty() ? Match::Maybe : Match::No;
  for (const auto& value : condition.values) best = std::max(best, MatchOf(condition.key, value, datagram));
  if (!condition.isNegated || best == Match::Maybe || condition.key == "never") return best;
  return best == Match::Yes ? Match::No : Match::Yes;
}

Match MatchOf(const FirewallRule& rule, const Datagram& datagram) {
  auto all = Match::Yes;
  for (const auto& condition : rule.conditions) all = std::min(all, MatchOf(condition, datagram));
  return all;
}

/// What may happen to a datagram in a chain; several are possible where a rule is not understood.
struct Outcomes {
  bool accepted = false;
  bool dropped = false;
  bool goesOn = false;
};

Outcomes OutcomesOf(const Firewall& firewall, const FirewallChain& chain, const Datagram& datagram,
                    unsigned depth = 0);

Outcomes OutcomesOf(const Firewall& firewall, const FirewallChain& chain, const FirewallRule& rule,
                    const Datagram& datagram, unsigned depth) {
  constexpr unsigned kDeepest = 16;
  if (rule.verdict.empty()) return {.goesOn = true};
  if (rule.verdict == "accept") return {.accepted = true};
  if (rule.verdict == "drop") return {.dropped = true};
  const auto next = std::ranges::find_if(firewall.chains, [&](const FirewallChain& other) {
    return other.table == chain.table && other.name == rule.verdict;
  });
  if (next == firewall.chains.end() || depth >= kDeepest) return {true, true, true};
  return OutcomesOf(firewall, *next, datagram, depth + 1);
}

Outcomes OutcomesOf(const Firewall& firewall, const FirewallChain& chain, const Datagram& datagram,
                    unsigned depth) {
  Outcomes all;
  for (const auto& rule : chain.rules) {
    const auto match = MatchOf(rule, datagram);
    if (match == Match::No) continue;
    if (rule.verdict == "return") {
      all.goesOn = true;
      if (match == Match::Yes) return all;
      continue;
    }
    const auto one = OutcomesOf(firewall, chain, rule, datagram, depth);
    all.accepted |= one.accepted;
    all.dropped |= one.dropped;
    if (match == Match::Yes && !one.goesOn) return all;
  }
  all.goesOn = true;
  return all;
}

/// The command that lets discovery in, in the words of whatever manages the rules.
std::string LetIn(const Firewall& firewall, const FirewallChain& chain) {
  const auto isAnyChain = [&](auto matches) { return std::ranges::any_of(firewall.chains, matches); };
  if (isAnyChain([](const FirewallChain& other) { return other.name.starts_with("ufw-"); }))
    return "sudo ufw allow 65110:65111/udp";
  if (isAnyChain([](const FirewallChain& other) { return other.table.ends_with(" firewalld"); }))
    return "sudo firewall-cmd --permanent --add-port=65110-65111/udp && sudo firewall-cmd --reload";
  if (firewall.isIptables)
    return "sudo iptables -t " + chain.table + " -I " + chain.name + " -p udp --dport 65110:65111 -j ACCEPT";
  return "sudo nft insert rule " + chain.table + ' ' + chain.name + " udp dport 65110-65111 accept";
}

/// The answers of devices on an interface.
std::array<Datagram, 2> AnswersOn(const quorvind::Interface& interface) {
  return {{{interface.name, quorvind::kMulticastGroup, std::to_string(quorvind::kMulticastPort), "multicast"},
           {interface.name, BroadcastOf(interface), std::to_string(quorvind::kBroadcastPort), "broadcast"}}};
}

}  // namespace

Firewall ReadFirewall(const std::string& text) {
  const bool isIptables = text.starts_with('*') || text.find("\n*") != std::string::npos;
  return isIptables ? ReadIptables(text) : ReadNft(text);
}

Judgement Judge(const Firewall& firewall, const Datagram& datagram) {
  Judgement judgement;
  for (const auto& chain : firewall.chains) {
    if (!chain.isFirst) continue;
    auto outcomes = OutcomesOf(firewall, chain, datagram);
    (chain.dropsAtEnd ? outcomes.dropped : outcomes.accepted) |= outcomes.goesOn;
    const auto passage = !outcomes.dropped   ? Passage::Passes
                         : outcomes.accepted ? Passage::MayBeDropped
                                             : Passage::IsDropped;
    if (passage > judgement.passage) judgement = {passage, &chain};
  }
  return judgement;
}

Findings CheckFirewall(const Machine& machine) {
  if (!machine.firewall && machine.isRoot)
    return {{"rules", State::Unknown, "neither nft nor iptables-save lists them"}};
  if (!machine.firewall) return {{"rules", State::Unknown, "only root can read them", "sudo qvio doctor"}};
  const auto firewall = ReadFirewall(*machine.firewall);
  Judgement worst;
  std::vector<std::string> dropped;
  for (const auto& interface : machine.interfaces) {
    for (const auto& answer : AnswersOn(interface)) {
      const auto judgement = Judge(firewall, answer);
      if (judgement.passage > worst.passage) {
        worst = judgement;
        dropped.clear();
      }
      if (judgement.passage == worst.passage) dropped.push_back(answer.interface + " UDP " + answer.port);
    }
  }
  if (worst.passage == Passage::Passes) return {{"rules", State::Ok, "none drops the answers of devices"}};
  const bool isSure = worst.passage == Passage::IsDropped;
  return {{"chain " + worst.chain->name + " of " + worst.chain->table, isSure ? State::Fault : State::Unknown,
           (isSure ? "drops the answers of devices: " : "may drop the answers of devices: ") +
               cppu::Join(dropped, ','),
           LetIn(firewall, *worst.chain)}};
}

}  // namespace qvio_tool
