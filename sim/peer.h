#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>

#include "sim/event_loop.h"
#include "sim/ftdi/stand_in.h"

namespace qvsim {

/// Kinds of link.
enum class Link { Usb, Terminal, Tcp };

inline constexpr std::array kLinks{Link::Usb, Link::Terminal, Link::Tcp};

/// How a link may end at the far side.
enum class Fault { Vanishes, Closes, Resets, EndsSending };

std::string NameOf(Link link);
std::string NameOf(Fault fault);

/// The faults that a kind of link can have.
std::span<const Fault> FaultsOf(Link link);

/// The echoing device at the far end of one channel. One thread at a time.
class Peer {
 public:
  Peer() = default;
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  virtual ~Peer() = default;

  [[nodiscard]] virtual std::string locator() const = 0;
  [[nodiscard]] virtual std::string options() const { return ""; }

  virtual void suffer(Fault fault) = 0;

  /// A stalled peer takes no bytes.
  virtual void stall(bool stalled) = 0;

  /// Sends more bytes than a receive thread can hand out in the time that it takes to close it.
  virtual void flood() = 0;

  /// Whether bytes wait that the stalled peer does not take.
  [[nodiscard]] virtual bool holdsUp() = 0;
};

/// Peers are made with it; it must outlive them.
struct Workshop {
  EventLoop loop;
  StandIn standIn;
};

/// @param chip  the serial number of a chip, which is plugged in by this; ignored for other links
std::unique_ptr<Peer> MakePeer(Link link, Workshop& workshop, const std::string& chip);

/// Chips with these serial numbers, and no others.
void SetChips(const Workshop& workshop, std::span<const std::string> serialNumbers);

}  // namespace qvsim
