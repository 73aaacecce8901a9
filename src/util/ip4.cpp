#include "util/ip4.h"

#include <arpa/inet.h>

namespace quorvind {

std::string IP4ToString(const IP4& address) {
  std::string text;
  for (const auto byte : address) {
    if (!text.empty()) text += '.';
    text += std::to_string(byte);
  }
  return text;
}

std::optional<IP4> IP4FromString(std::string_view text) {
  IP4 address{};
  // Strict: inet_aton would also read "10.1" and "0x0a.0.0.1".
  if (::inet_pton(AF_INET, std::string(text).c_str(), address.data()) != 1) return {};
  return address;
}

}  // namespace quorvind
