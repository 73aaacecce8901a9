#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "io/io_device.h"

namespace qvio {

/// The open channels; the slot's index is the handle. Any thread.
class HandleTable {
 public:
  constexpr explicit HandleTable(std::mutex& globalMutex) : globalMutex_(globalMutex) {}

  /// Stores the channel in the lowest free slot and returns its handle; none when all slots are taken.
  std::optional<uint32_t> store(std::shared_ptr<IoDevice> channel);

  /// The channel of a handle. Throws Failure with QV_IO_ERROR_INVALID_HANDLE.
  [[nodiscard]] std::shared_ptr<IoDevice> at(uint32_t handle) const;

  /// Empties the slot and returns its channel. Throws as at() does.
  std::shared_ptr<IoDevice> take(uint32_t handle);

  /// Drops every reference, from the last slot to the first, without closing: for the end of the library,
  /// when no receive thread is left. Caller holds the global mutex.
  void clear() noexcept;

 private:
  std::mutex& globalMutex_;  ///< guards what follows
  std::array<std::shared_ptr<IoDevice>, QV_IO_HANDLE_COUNT> slots_;
};

}  // namespace qvio
