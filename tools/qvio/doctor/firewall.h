#pragma once

#include <optional>
#include <string>
#include <vector>

#include "util/ip4.h"

namespace qvio_tool {

/// One condition of a rule. What is not understood has an empty key and may match or not.
struct FirewallCondition {
  std::string key;                  ///< "interface", "protocol", "port", "state", "to" or "kind"
  std::vector<std::string> values;  ///< one of them matches; "A-B" is a range of ports
  bool isNegated = false;
};

struct FirewallRule {
  std::vector<FirewallCondition> conditions;
  std::string verdict;  ///< "accept", "drop", "return", the chain to go to, or empty: it goes on
};

struct FirewallChain {
  std::string table;  ///< "ip filter"
  std::string name;
  bool isFirst = false;  ///< packets that arrive start here
  bool dropsAtEnd = false;
  std::vector<FirewallRule> rules;
};

struct Firewall {
  bool isIptables = false;
  std::vector<FirewallChain> chains;  ///< of IPv4 only
};

/// Reads what `nft list ruleset` or `iptables-save` prints.
Firewall ReadFirewall(const std::string& text);

/// A datagram of discovery that arrives.
struct Datagram {
  std::string interface;
  quorvind::IP4 to;
  std::string port;
  std::string kind;  ///< "multicast" or "broadcast"
};

/// What becomes of it.
enum class Passage { Passes, MayBeDropped, IsDropped };

struct Judgement {
  Passage passage = Passage::Passes;
  const FirewallChain* chain = nullptr;  ///< where it starts, of those that drop it
};
Judgement Judge(const Firewall& firewall, const Datagram& datagram);

}  // namespace qvio_tool
