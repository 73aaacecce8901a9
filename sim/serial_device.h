#pragma once

#include <memory>
#include <string>

#include "sim/byte_stream.h"
#include "sim/event_loop.h"
#include "sim/responder.h"
#include "util/unique_fd.h"

namespace qvsim {

/// A serial device on a pseudo terminal. Programs may open and close its path repeatedly. Any
/// thread; the loop must outlive it.
class SerialDevice {
 public:
  /// Throws std::system_error when no pseudo terminal is available.
  SerialDevice(EventLoop& loop, const MakeResponder& makeResponder);
  SerialDevice(const SerialDevice&) = delete;
  SerialDevice& operator=(const SerialDevice&) = delete;
  ~SerialDevice();

  /// The device file that programs open.
  [[nodiscard]] const std::string& path() const { return path_; }

  [[nodiscard]] bool hasUnread();

  /// Faults.
  void setReading(Reading reading);
  void sendForever();
  void hangUp();  ///< as if the cable was pulled; for good

 private:
  EventLoop& loop_;
  std::string path_;
  cppu::UniqueFd heldOpen_;  ///< the programs' end: without it the device would end with the first program
  std::unique_ptr<ByteStream> stream_;  ///< loop's thread only; null after the hang-up
};

}  // namespace qvsim
