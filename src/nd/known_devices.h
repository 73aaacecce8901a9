#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

#include "nd/discover_info.h"

namespace quorvind {

/// Devices in the order of their first appearance, each once. Finding one takes constant time. Not
/// thread-safe: the owner locks.
class KnownDevices {
 public:
  using Position = std::list<DiscoverInfo>::iterator;

  /// The most devices that are kept for an interface: far more than any network has, yet little memory if
  /// somebody forges answers.
  static constexpr std::size_t kMost = 16384;

  [[nodiscard]] bool isFull() const { return list_.size() >= kMost; }
  [[nodiscard]] auto begin() const { return list_.begin(); }
  [[nodiscard]] auto end() const { return list_.end(); }
  [[nodiscard]] Position end() { return list_.end(); }

  /// The same device, or end().
  [[nodiscard]] Position find(const DiscoverInfo& info) {
    const auto found = index_.find(std::cref(info));
    return found != index_.end() ? found->second : list_.end();
  }

  /// Does nothing when the device is known.
  void append(const DiscoverInfo& info) {
    std::list<DiscoverInfo> node{info};
    if (index_.try_emplace(std::cref(node.front()), node.begin()).second) list_.splice(list_.end(), node);
  }

  /// Returns the position after it.
  Position erase(Position position) {
    index_.erase(std::cref(*position));
    return list_.erase(position);
  }

  /// Takes out those for which the predicate holds.
  template <class Predicate>
  std::list<DiscoverInfo> takeIf(Predicate predicate) noexcept {
    std::list<DiscoverInfo> taken;
    for (auto position = list_.begin(); position != list_.end();) {
      const auto device = position++;
      if (!predicate(std::as_const(*device))) continue;
      index_.erase(std::cref(*device));
      taken.splice(taken.end(), list_, device);
    }
    return taken;
  }

  [[nodiscard]] std::vector<DiscoverInfo> copy() const { return {list_.begin(), list_.end()}; }

 private:
  std::list<DiscoverInfo> list_;
  std::unordered_map<std::reference_wrapper<const DiscoverInfo>, Position, DeviceHash, SameDevice> index_;
};

}  // namespace quorvind
