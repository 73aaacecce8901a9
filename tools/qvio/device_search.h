#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "device.h"
#include "util/ip4.h"

namespace qvio_tool {

/// A search for network devices over some interfaces. While it lives, discovery listens there: answers that
/// come late count too, and devices that come and go raise events. One at a time. Any thread.
class DeviceSearch {
 public:
  /// Throws CommandFailure when an interface cannot be used.
  explicit DeviceSearch(const quorvind::IP4Set& addresses);
  DeviceSearch(const DeviceSearch&) = delete;
  DeviceSearch& operator=(const DeviceSearch&) = delete;
  ~DeviceSearch();

  /// Asks once, waits for the whole time, and gives the devices that have answered by then, available or not.
  [[nodiscard]] std::vector<Device> ask(std::chrono::milliseconds time) const;

 private:
  std::string options_;
};

}  // namespace qvio_tool
