#pragma once

#include <functional>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

#include "nd/discover_info.h"

namespace quorvind {

/// Devices in the order of their first appearance, each once. Finding one does not depend on how many there
/// are. Not locked: the owner does that.
class KnownDevices {
 public:
  using Position = std::list<DiscoverInfo>::iterator;

  [[nodiscard]] Position begin() { return list_.begin(); }
  [[nodiscard]] Position end() { return list_.end(); }

  /// The same device, or end().
  [[nodiscard]] Position find(const DiscoverInfo& info) {
    const auto found = index_.find(std::cref(info));
    return found != index_.end() ? found->second : list_.end();
  }

  /// The device must not be known.
  void append(const DiscoverInfo& info) {
    const auto position = list_.insert(list_.end(), info);
    index_.emplace(std::cref(*position), position);
  }

  /// Returns the position after it.
  Position erase(Position position) {
    index_.erase(std::cref(*position));
    return list_.erase(position);
  }

  [[nodiscard]] std::vector<DiscoverInfo> copy() const { return {list_.begin(), list_.end()}; }

 private:
  std::list<DiscoverInfo> list_;
  std::unordered_map<std::reference_wrapper<const DiscoverInfo>, Position, DeviceHash, SameDevice> index_;
};

}  // namespace quorvind
