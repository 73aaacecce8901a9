#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "open_channel.h"
#include "quorvio/quorvio.h"

namespace qvfuzz {

/// The handle table as an application may expect it.
class HandleModel {
 public:
  /// Null: not open.
  [[nodiscard]] OpenChannel* at(uint32_t handle) const {
    return handle < slots_.size() ? slots_[handle] : nullptr;
  }

  /// None: all are in use.
  [[nodiscard]] std::optional<uint32_t> lowestFree() const {
    const auto* const free = std::ranges::find(slots_, nullptr);
    if (free == slots_.end()) return {};
    return static_cast<uint32_t>(free - slots_.begin());
  }

  void opened(uint32_t handle, OpenChannel& channel) { slots_.at(handle) = &channel; }
  void closed(uint32_t handle) { slots_.at(handle) = nullptr; }

  template <class Action>
  void forEachOpen(Action action) const {
    for (uint32_t handle = 0; handle < slots_.size(); ++handle) {
      if (slots_[handle] != nullptr) action(handle, *slots_[handle]);
    }
  }

 private:
  std::array<OpenChannel*, QV_IO_HANDLE_COUNT> slots_{};
};

}  // namespace qvfuzz
