#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include "nd/discover_info.h"
#include "nd/known_devices.h"
#include "util/ip4.h"

namespace quorvind {

/// The devices that were heard over each local address. Records outlive their discovery channel, so that a
/// device can be opened by serial number without another search. Not thread-safe: the owner locks.
class DeviceCache {
 public:
  using Time = std::chrono::steady_clock::time_point;

  explicit DeviceCache(std::size_t buckets = kInitialBuckets) : devices_(buckets) {}

  /// Stores the record, or refreshes the time of the same one.
  void insert(const IP4& local, const DiscoverInfo& info);

  /// Refreshes the time of the record; false when there is none.
  bool refresh(const IP4& local, const DiscoverInfo& info);

  void erase(const IP4& local, const DiscoverInfo& info);

  struct Heard {
    IP4 local;
    DiscoverInfo info;
  };
  /// The record with the serial number that was heard last, which is where a device that has moved can be
  /// reached.
  [[nodiscard]] std::optional<Heard> latest(std::string_view serialNumber) const;

  /// Drops the records that were last heard before the moment, on addresses that the predicate selects.
  template <class Predicate>
  void expire(Time moment, Predicate isUnused) {
    for (auto& [local, known] : devices_) {
      if (isUnused(local))
        known.takeIf([moment](const DiscoverInfo& info) { return info.LastSeen < moment; });
    }
    std::erase_if(devices_, [](const auto& entry) { return entry.second.begin() == entry.second.end(); });
  }

 private:
  std::unordered_map<IP4, KnownDevices, IP4AddressHash> devices_;
};

}  // namespace quorvind
