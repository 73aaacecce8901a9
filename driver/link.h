#pragma once

#include <poll.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct usbdevfs_urb;

namespace qvusb {

/// Bytes on their way to or from a chip. The system uses it from its submission until it is reaped.
struct Transfer {
  enum class Direction { In, Out };

  Direction direction = Direction::In;
  std::vector<char> bytes;                ///< to send, or room for what comes
  std::size_t done = 0;                   ///< of them, once reaped
  int error = 0;                          ///< errno, once reaped; 0 also for a cancelled one
  bool isPending = false;                 ///< submitted and not reaped
  std::shared_ptr<usbdevfs_urb> request;  ///< the kernel's part
};

/// A request to the chip itself.
struct ControlRequest {
  uint8_t request = 0;
  uint16_t value = 0;
  uint16_t index = 0;
};

/// The connection to one channel of a chip. Functions that return int give 0 or an errno; ENODEV: the chip is
/// gone. Any thread.
class Link {
 public:
  Link() = default;
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  virtual ~Link() = default;

  /// Returns when the chip has answered.
  /// @param answer  empty: none is asked for
  virtual int control(const ControlRequest& request, std::span<uint8_t> answer) = 0;

  // The next three with the same lock held, so that what is pending is known.
  virtual int submit(Transfer& transfer) = 0;
  /// A transfer that has ended, in the order of their ends; null when there is none.
  virtual Transfer* reap() = 0;
  /// After a transfer has failed: the chip's direction works again.
  virtual void clearHalt(Transfer::Direction direction) = 0;

  /// Ends a pending transfer soon; it is reaped like any other.
  virtual void cancel(Transfer& transfer) = 0;

  /// To poll for transfers that have ended.
  [[nodiscard]] virtual pollfd readiness() const = 0;

  /// Ends everything and gives the channel back to the system. Nothing is submitted any more.
  virtual void release() noexcept = 0;

  /// In a forked child: closes its copies of descriptors, and nothing that is shared with the parent.
  virtual void abandon() noexcept = 0;
};

}  // namespace qvusb
