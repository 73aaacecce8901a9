#pragma once

#include <cstddef>
#include <thread>

#include "line.h"

namespace qvbench {

/// The far end of a line, played by a thread on a processor of its own until the near end is closed. It must
/// outlive the near end.
class Peer {
 public:
  /// What it does with its descriptor; returns when the line has ended.
  using Script = void (*)(int fd);

  Peer(Line line, Script script);

  [[nodiscard]] const Address& address() const { return address_; }

 private:
  Listener listener_;
  Address address_;
  std::jthread thread_;
};

/// The most bytes of one read or write of the far end, and of plain code that works in large pieces.
inline constexpr std::size_t kLargePiece = 65536;

/// What Flood sends for each byte that it receives, and what Swallow takes before it answers one byte.
inline constexpr std::size_t kBulk = std::size_t{512} << 20U;

void Echo(int fd);
void Flood(int fd);
void Swallow(int fd);

}  // namespace qvbench
