#pragma once

#include <termios.h>

#include <cstdint>

#include "io/descriptor_channel.h"

namespace qvio {

/// The line settings for a requested speed in baud, which is rounded down to the next one of the speed table
/// (the lowest for less): raw, 8 data bits, no parity, 1 stop bit, no flow control.
termios LineSettings(uint32_t baudrate, bool xonxoff);

/// A serial port, locator serial:PATH.
class IoSerial final : public DescriptorChannel {
 public:
  explicit IoSerial(ChannelArguments arguments);

  /// Every key gives the empty text.
  [[nodiscard]] std::string property(std::string_view key) override;

 private:
  [[nodiscard]] cppu::UniqueFd openDescriptor() const override;
};

}  // namespace qvio
