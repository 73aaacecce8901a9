#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "io/ftdi/driver.h"
#include "io/ftdi/link_settings.h"
#include "util/stop_signal.h"

namespace qvio {

/// Times that the driver keeps for an open chip.
struct ChipTimes {
  uint32_t readMs = 0;
  uint32_t writeMs = 0;
  uint32_t latencyMs = 0;  ///< 1 to 255
};

/// A chip that is open in the driver; closes itself. The driver allows calls on several threads, but for the
/// closing.
class Chip {
 public:
  Chip() = default;
  Chip(Chip&& other) noexcept
      : functions_(std::exchange(other.functions_, nullptr)),
        handle_(std::exchange(other.handle_, nullptr)) {}
  Chip& operator=(Chip&& other) noexcept {
    std::swap(functions_, other.functions_);
    std::swap(handle_, other.handle_);
    other.close();
    return *this;
  }
  ~Chip() { close(); }

  /// Throws Failure with QV_IO_ERROR_DRIVER_FAILURE.
  static Chip openBySerialNumber(const D2xxFunctions& functions, std::string serialNumber);

  /// None when the driver refuses, because some process has the chip open for instance.
  static std::optional<Chip> openByIndex(const D2xxFunctions& functions, std::size_t index);

  void close() noexcept;
  explicit operator bool() const noexcept { return functions_ != nullptr; }

  [[nodiscard]] const D2xxFunctions& functions() const { return *functions_; }
  [[nodiscard]] d2xx::Handle handle() const { return handle_; }

  /// The EEPROM's user area. Throws Failure with QV_IO_ERROR_DRIVER_FAILURE.
  [[nodiscard]] std::vector<uint8_t> readUserArea() const;

  /// Sets the line up and empties the driver's queues. Throws Failure: QV_IO_ERROR_INVALID_ARGUMENT for a
  /// speed that is missing or refused, QV_IO_ERROR_DRIVER_FAILURE for anything else.
  void configure(const LinkSettings& settings, const ChipTimes& times) const;

  /// The chip's unique number; none when it cannot be read.
  [[nodiscard]] std::optional<uint32_t> id() const;

  /// Writes all bytes within the limit. A stop request ends it between two writes, and a rest at once.
  /// Throws Failure: QV_IO_ERROR_CONNECTION_LOST, the driver has lost the chip; QV_IO_ERROR_TRANSMIT_FAILED,
  /// any other failure, the limit, or the stop request.
  /// @param stop  may be null
  void write(std::span<const uint8_t> bytes, std::chrono::milliseconds limit,
             const cppu::StopSignal* stop) const;

 private:
  Chip(const D2xxFunctions& functions, d2xx::Handle handle) : functions_(&functions), handle_(handle) {}

  void enterFifoMode() const;

  const D2xxFunctions* functions_ = nullptr;
  d2xx::Handle handle_ = nullptr;
};

}  // namespace qvio
