#include "api/handle_table.h"

#include <algorithm>
#include <utility>

#include "util/failure.h"

namespace qvio {
namespace {

void RequireOpen(bool isOpen, uint32_t handle) {
  Require(isOpen, QV_IO_ERROR_INVALID_HANDLE, "handle % is not open", {handle});
}

}  // namespace

std::optional<uint32_t> HandleTable::store(std::shared_ptr<IoDevice> channel) {
  const std::lock_guard lock(globalMutex_);
  auto* const slot = std::ranges::find(slots_, nullptr);
  if (slot == slots_.end()) return {};
  *slot = std::move(channel);
  return static_cast<uint32_t>(slot - slots_.begin());
}

std::shared_ptr<IoDevice> HandleTable::at(uint32_t handle) const {
  RequireOpen(handle < slots_.size(), handle);
  const std::lock_guard lock(globalMutex_);
  RequireOpen(slots_[handle] != nullptr, handle);
  return slots_[handle];
}

std::shared_ptr<IoDevice> HandleTable::take(uint32_t handle) {
  RequireOpen(handle < slots_.size(), handle);
  const std::lock_guard lock(globalMutex_);
  RequireOpen(slots_[handle] != nullptr, handle);
  // The caller drops the reference, and with it perhaps the channel, after the lock.
  return std::exchange(slots_[handle], nullptr);
}

void HandleTable::clear() noexcept {
  // The last opened first, as destructors would.
  for (auto slot = slots_.rbegin(); slot != slots_.rend(); ++slot) slot->reset();
}

}  // namespace qvio
