#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "options/record_list.h"

namespace qvio {

/// The list of serial ports. Nothing fills it: no port scanner belongs to the library, so that it is never
/// fresh and its listings always answer QV_IO_ERROR_NOT_SUPPORTED. Any thread.
class SerialPorts {
 public:
  /// Appends a record for each usable port. Throws Failure with QV_IO_ERROR_NOT_SUPPORTED unless the list was
  /// filled within the last 3 s and no rescan is asked for.
  void appendRecords(bool forceRescan, RecordList& records) const;

  /// The locators of all ports, usable or not, one a line. Throws as appendRecords does.
  [[nodiscard]] std::string locatorLines(bool forceRescan) const;

 private:
  struct Port {
    std::string name;
    bool usable;

    [[nodiscard]] std::string locator() const { return "serial:" + name; }
  };

  void requireFresh(bool forceRescan) const;  // caller holds mutex_

  mutable std::mutex mutex_;  ///< guards what follows; nothing else is locked while it is held
  std::vector<Port> ports_;
  bool valid_ = false;
  std::chrono::steady_clock::time_point scanned_;
};

}  // namespace qvio
