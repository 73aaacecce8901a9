#pragma once

#include <optional>
#include <string>

#include "util/unique_fd.h"

namespace qvio_tool {

/// The advisory lock of a serial port, held during its life, so that two programs do not talk into each
/// other. For any other locator, and for a file that cannot be opened, it does nothing.
class SerialPortLock {
 public:
  /// Throws CommandFailure with the name of the process that holds the lock.
  explicit SerialPortLock(const std::string& locator);

  /// Tells on standard error what the options do not: the speed that the line really runs at, and that
  /// xonxoff is no flow control. Once the channel is open.
  void tellSurprises(const std::string& options) const;

 private:
  std::string path_;
  cppu::UniqueFd fd_;
};

}  // namespace qvio_tool
