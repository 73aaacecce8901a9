#pragma once

#include <map>
#include <string>

#include "device/event_settler.h"

namespace qvio_tool {

/// The last report of every device, for a terminal on which it is drawn again and again.
class LiveTable {
 public:
  void add(const DeviceReport& report) { reports_.insert_or_assign(report.device, report); }

  /// What draws the table at the top of the terminal; rows that do not fit are only counted.
  [[nodiscard]] std::string drawing() const;

 private:
  std::map<quorvio::Device, DeviceReport, DeviceOrder> reports_;
};

}  // namespace qvio_tool
