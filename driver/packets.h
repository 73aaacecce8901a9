#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace qvusb {

/// Each packet from a chip begins with two bytes of status.
inline constexpr std::size_t kStatusSize = 2;

/// Calls the sink with the bytes of every packet of one transfer that has more than the status.
template <class Sink>
void ForEachPayload(std::string_view transfer, std::size_t packetSize, Sink sink) {
  while (!transfer.empty()) {
    const auto packet = transfer.substr(0, packetSize);
    if (packet.size() > kStatusSize) sink(packet.substr(kStatusSize));
    transfer.remove_prefix(packet.size());
  }
}

}  // namespace qvusb
