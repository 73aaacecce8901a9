#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/chip.h"
#include "driver/divisor.h"
#include "driver/link.h"

namespace qvusb {

/// The requests that a chip understands, for one of its channels. They throw std::system_error. Any thread.
class ChipControl {
 public:
  enum class Queue : uint16_t { Received = 1, ToTransmit = 2 };

  ChipControl(Link& link, const ChipKind& kind, uint8_t channel);

  void reset() const;
  void purge(Queue queue) const;
  void setSpeed(const Divisor& divisor) const;
  void setData(uint8_t bits, uint8_t stopBits, uint8_t parity) const;
  /// @param flow  as D2XX has it
  void setFlowControl(uint16_t flow, uint8_t xon, uint8_t xoff) const;
  void setLatency(uint8_t ms) const;
  void setBitMode(uint8_t mask, uint8_t mode) const;
  [[nodiscard]] uint16_t readEeprom(std::size_t word) const;

 private:
  void send(uint8_t request, unsigned value, unsigned high = 0) const;

  Link& link_;
  uint8_t index_;  ///< of the channel in requests; 0: the chip has no other
};

}  // namespace qvusb
