#include "io/serial_ports.h"

#include "util/failure.h"
#include "util/text.h"

namespace qvio {
namespace {

constexpr std::chrono::seconds kFreshFor{3};

}  // namespace

void SerialPorts::requireFresh(bool forceRescan) const {
  const bool fresh = valid_ && std::chrono::steady_clock::now() <= scanned_ + kFreshFor;
  Require(fresh && !forceRescan, QV_IO_ERROR_NOT_SUPPORTED, "serial ports cannot be listed");
}

void SerialPorts::appendRecords(bool forceRescan, RecordList& records) const {
  const std::lock_guard lock(mutex_);
  requireFresh(forceRescan);
  for (const auto& port : ports_) {
    if (port.usable) records.push_back({{"iface-type", "serial"}, {"locator", port.locator()}});
  }
}

std::string SerialPorts::locatorLines(bool forceRescan) const {
  const std::lock_guard lock(mutex_);
  requireFresh(forceRescan);
  std::vector<std::string> lines;
  lines.reserve(ports_.size());
  for (const auto& port : ports_) lines.push_back(port.locator());
  return cppu::Join(lines, '\n');
}

}  // namespace qvio
