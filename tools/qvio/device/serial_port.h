#pragma once

#include "device/channel_options.h"
#include "util/unique_fd.h"

namespace qvio_tool {

/// The advisory lock of a serial port, held during its life, so that two programs do not mix their bytes. For
/// any other locator, and for a file that cannot be opened, it does nothing.
class SerialPortLock {
 public:
  /// Throws CommandFailure with the name of the process that holds the lock.
  explicit SerialPortLock(const ChannelOptions& options);

  /// Writes to standard error where the open port differs from its options: another speed, or xonxoff, which
  /// is not flow control.
  void reportSurprises(const ChannelOptions& options) const;

 private:
  cppu::UniqueFd fd_;
};

}  // namespace qvio_tool
