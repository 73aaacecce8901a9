#include "nd/device_cache.h"

#include "nd/log.h"

namespace quorvind {
namespace {

/// Of a full cache, what was heard within this time stays.
constexpr std::chrono::seconds kRecent{10};

}  // namespace

void DeviceCache::insert(const IP4& local, const DiscoverInfo& info) {
  if (refresh(local, info)) return;
  auto& known = devices_[local];
  // Only now, so that old records cost nothing until forged answers fill the cache.
  if (known.isFull()) {
    known.takeIf([&](const DiscoverInfo& old) { return old.LastSeen < info.LastSeen - kRecent; });
  }
  if (known.isFull()) return LogWarning("Too many devices, ignored", info.SerialNumber);
  known.append(info);
}

bool DeviceCache::refresh(const IP4& local, const DiscoverInfo& info) {
  const auto known = devices_.find(local);
  if (known == devices_.end()) return false;
  const auto position = known->second.find(info);
  if (position == known->second.end()) return false;
  position->LastSeen = info.LastSeen;
  return true;
}

void DeviceCache::erase(const IP4& local, const DiscoverInfo& info) {
  const auto known = devices_.find(local);
  if (known == devices_.end()) return;
  const auto position = known->second.find(info);
  if (position != known->second.end()) known->second.erase(position);
}

/// Walks all records: opens by serial number are rare, and an index would have to follow every answer.
std::optional<DeviceCache::Heard> DeviceCache::latest(std::string_view serialNumber) const {
  const IP4* local = nullptr;
  const DiscoverInfo* latest = nullptr;
  for (const auto& [address, known] : devices_) {
    for (const auto& info : known) {
      if (info.SerialNumber != serialNumber) continue;
      if (latest != nullptr && latest->LastSeen >= info.LastSeen) continue;
      local = &address;
      latest = &info;
    }
  }
  if (latest == nullptr) return {};
  return Heard{*local, *latest};
}

}  // namespace quorvind
