// Whether the firewall lets the answers of devices in.

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

#include "doctor/checks.h"
#include "doctor/firewall_rules.h"
#include "doctor/subnet.h"
#include "nd/network_socket.h"
#include "util/text.h"

namespace qvio_tool {
namespace {

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

/// A datagram of discovery that arrives.
struct Datagram {
  std::string interface;
  quorvind::IP4 to;
  std::string port;
  std::string kind;  ///< "multicast" or "broadcast"
};

std::string Lower(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

bool IsNameOf(const std::string& interface, const std::string& pattern) {
  const bool isPrefix = pattern.ends_with('*') || pattern.ends_with('+');
  return isPrefix ? interface.starts_with(pattern.substr(0, pattern.size() - 1)) : interface == pattern;
}

/// What is not understood may match: the answer is unsure then, but not wrong.
Match MatchOf(const std::string& key, const std::string& value, const Datagram& datagram) {
  const auto yesIf = [](bool matches) { return matches ? Match::Yes : Match::No; };
  if (value.starts_with('@')) return Match::Maybe;  // a set with a name
  if (key == "interface") return yesIf(IsNameOf(datagram.interface, value));
  if (key == "protocol") return yesIf(value == "udp" || value == "17" || value == "all");
  if (key == "port") return yesIf(IsInRange(datagram.port, value));
  if (key == "state") return yesIf(Lower(value) == "new");
  if (key == "to") return yesIf(IsInNetwork(datagram.to, value));
  if (key == "kind") return yesIf(Lower(value) == datagram.kind);
  return yesIf(key == "family" && value == "ipv4");
}

Match MatchOf(const FirewallCondition& condition, const Datagram& datagram) {
  if (condition.key.empty()) return Match::Maybe;
  if (condition.key == "never") return Match::No;
  auto best = Match::No;
  for (const auto& value : condition.values) best = std::max(best, MatchOf(condition.key, value, datagram));
  if (!condition.isNegated || best == Match::Maybe) return best;
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

constexpr Outcomes kUnsure{true, true, true};

/// Sends a datagram through chains.
class Passing {
 public:
  Passing(const Firewall& firewall, const Datagram& datagram) : firewall_(firewall), datagram_(datagram) {}

  Outcomes through(const FirewallChain& chain) {
    Outcomes all;
    for (const auto& rule : chain.rules) {
      if (rulesLeft_-- == 0) return kUnsure;
      const auto match = MatchOf(rule, datagram_);
      if (match == Match::No) continue;
      const auto one = by(rule, chain);
      const bool leaves = rule.verdict == "return" || !rule.comesBack;
      all.accepted |= one.accepted;
      all.dropped |= one.dropped;
      all.goesOn |= leaves && one.goesOn;
      if (match == Match::Yes && (leaves || !one.goesOn)) return all;
    }
    all.goesOn = true;
    return all;
  }

 private:
  Outcomes by(const FirewallRule& rule, const FirewallChain& chain) {
    if (rule.verdict.empty() || rule.verdict == "return") return {.goesOn = true};
    if (rule.verdict == "accept") return {.accepted = true};
    if (rule.verdict == "drop") return {.dropped = true};
    const auto next = std::ranges::find_if(firewall_.chains, [&](const FirewallChain& other) {
      return other.table == chain.table && other.name == rule.verdict;
    });
    return next == firewall_.chains.end() ? kUnsure : through(*next);
  }

  const Firewall& firewall_;
  const Datagram& datagram_;
  unsigned rulesLeft_ = 100'000;  ///< chains may lead to chains in very many ways
};

enum class Passage { Passes, MayBeDropped, IsDropped };

struct Judgement {
  Passage passage = Passage::Passes;
  const FirewallChain* chain = nullptr;  ///< the first one of the way on which it is dropped
};

Judgement Judge(const Firewall& firewall, const Datagram& datagram) {
  Judgement judgement;
  for (const auto& chain : firewall.chains) {
    if (!chain.isFirst) continue;
    auto outcomes = Passing(firewall, datagram).through(chain);
    (chain.dropsAtEnd ? outcomes.dropped : outcomes.accepted) |= outcomes.goesOn;
    const auto passage = !outcomes.dropped   ? Passage::Passes
                         : outcomes.accepted ? Passage::MayBeDropped
                                             : Passage::IsDropped;
    if (passage > judgement.passage) judgement = {passage, &chain};
  }
  return judgement;
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
