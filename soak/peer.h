#pragma once

#include <memory>
#include <span>
#include <string>

#include "kind.h"
#include "sim/event_loop.h"
#include "sim/ftdi/stand_in.h"

namespace qvsoak {

/// What may happen to a link for good. A peer that vanishes has to come back before it can be opened again.
enum class Fault { Vanishes, Closes, Resets, EndsSending };

std::string NameOf(Fault fault);

/// Those that a kind of link knows.
std::span<const Fault> FaultsOf(Kind kind);

/// The echoing device at the far end of one channel. One thread at a time.
class Peer {
 public:
  Peer() = default;
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  virtual ~Peer() = default;

  [[nodiscard]] virtual std::string locator() const = 0;
  [[nodiscard]] virtual const char* options() const { return ""; }

  virtual void suffer(Fault fault) = 0;
  virtual void comeBack() = 0;

  /// Takes no bytes meanwhile.
  virtual void stall(bool stalled) = 0;

  /// Sends more bytes than a receive thread can hand out in the time that it takes to close it.
  virtual void flood() = 0;

  /// Whether bytes that the stalled peer does not take wait in front of it.
  [[nodiscard]] virtual bool holdsUp() = 0;
};

/// What peers are made with; it must outlive them.
struct Workshop {
  qvsim::EventLoop loop;
  qvsim::StandIn standIn;
};

/// @param chip  the serial number of a chip, for a peer of that kind
std::unique_ptr<Peer> MakePeer(Kind kind, Workshop& workshop, const std::string& chip);

/// Chips with these serial numbers, and no others.
void SetChips(const Workshop& workshop, std::span<const std::string> serialNumbers);

}  // namespace qvsoak
