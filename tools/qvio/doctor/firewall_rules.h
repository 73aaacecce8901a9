#pragma once

#include <string>
#include <vector>

namespace qvio_tool {

/// One condition of a rule.
struct FirewallCondition {
  std::string key;  ///< "interface", "protocol", "port", "state", "to", "kind", "family", or "never", which
                    ///< does not match a datagram; empty: not understood
  std::vector<std::string> values{};  ///< one of them matches
  bool isNegated = false;
};

struct FirewallRule {
  std::vector<FirewallCondition> conditions;  ///< all must match
  std::string verdict;    ///< "accept", "drop", "return", a chain, anything not understood; empty: none
  bool comesBack = true;  ///< from the chain
};

struct FirewallChain {
  std::string table;  ///< "ip filter"; of iptables "filter"
  std::string name;
  bool isFirst = false;  ///< datagrams that arrive start here
  bool dropsAtEnd = false;
  std::vector<FirewallRule> rules{};
};

struct Firewall {
  bool isIptables = false;
  std::vector<FirewallChain> chains{};  ///< of IPv4 only
};

/// Reads what `nft list ruleset` or `iptables-save` prints, as far as discovery needs it.
Firewall ReadFirewall(const std::string& text);

}  // namespace qvio_tool
