#include "api/handle_table.h"

#include <algorithm>
#include <utility>

#include "options/result.h"

namespace qvio {

std::optional<uint32_t> HandleTable::store(std::shared_ptr<IoDevice> channel) {
  const std::lock_guard lock(globalMutex_);
  auto* const slot = std::ranges::find(slots_, nullptr);
  if (slot == slots_.end()) return {};
  *slot = std::move(channel);
  return static_cast<uint32_t>(slot - slots_.begin());
}

std::shared_ptr<IoDevice> HandleTable::at(uint32_t handle) const {
  Require(handle < slots_.size(), QV_IO_ERROR_INVALID_HANDLE);
  const std::lock_guard lock(globalMutex_);
  Require(slots_[handle] != nullptr, QV_IO_ERROR_INVALID_HANDLE);
  return slots_[handle];
}

std::shared_ptr<IoDevice> HandleTable::take(uint32_t handle) {
  Require(handle < slots_.size(), QV_IO_ERROR_INVALID_HANDLE);
  const std::lock_guard lock(globalMutex_);
  Require(slots_[handle] != nullptr, QV_IO_ERROR_INVALID_HANDLE);
  return std::exchange(slots_[handle], nullptr);
}

void HandleTable::clear() noexcept {
  for (auto slot = slots_.rbegin(); slot != slots_.rend(); ++slot) slot->reset();
}

}  // namespace qvio
