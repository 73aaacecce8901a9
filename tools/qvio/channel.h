#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "serial_port.h"
#include "util/unique_fd.h"

namespace qvio_tool {

/// An open channel whose callbacks fill a queue, so that one poll loop can serve it beside everything else.
class Channel {
 public:
  /// What has come since the last look.
  struct Arrivals {
    std::string bytes;
    std::vector<uint32_t> notices;      ///< result codes of the error callback
    std::vector<std::string> failures;  ///< of sends in the background
  };

  /// Locks a serial port, opens, and tells surprises on standard error. Throws CommandFailure.
  Channel(const std::string& locator, const std::string& options);
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;
  ~Channel() { close(); }

  /// Closes with wait; a send that is stuck ends. At most once is enough.
  void close();

  /// Throws CommandFailure when not all bytes could be sent.
  void send(std::string_view bytes) const;

  void addFailure(std::string text);

  /// Readable while something has come that was not taken.
  [[nodiscard]] int readyFd() const { return ready_.get(); }

  [[nodiscard]] Arrivals take();

 private:
  template <class Action>
  void arrive(Action action);

  SerialPortLock lock_;
  cppu::UniqueFd ready_;
  std::mutex mutex_;  ///< guards arrivals_
  Arrivals arrivals_;
  uint32_t handle_ = 0;
  bool open_ = false;
};

}  // namespace qvio_tool
