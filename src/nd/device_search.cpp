#include "nd/device_search.h"

#include <list>
#include <mutex>
#include <vector>

#include "nd/search_task.h"

namespace quorvind {
namespace {

using std::chrono::milliseconds;
using Time = std::chrono::steady_clock::time_point;

constexpr std::chrono::seconds kFreshFor{3};

std::vector<SearchTask> StartSearches(const ChannelList& channels, milliseconds timeout, bool force,
                                      const std::string& serialNumber) {
  const auto freshnessLimit = std::chrono::steady_clock::now() - kFreshFor;
  std::vector<SearchTask> searches;
  for (const auto& channel : channels) {
    // The time of the last search is never set, so that every call searches: a list that is up to 3 s old
    // would miss the device that was just switched on.
    if (!force && channel->lastSearch >= freshnessLimit) continue;
    searches.emplace_back(channel->filter, timeout, serialNumber);
  }
  return searches;
}

/// Registers a serial number as awaited while it lives.
class Awaiting {
 public:
  Awaiting(QuorviNDState& state, const std::string& serialNumber) : state_(state) {
    const std::lock_guard lock(state_.mutex);
    position_ = state_.awaited.insert(state_.awaited.end(), {serialNumber});
  }
  Awaiting(const Awaiting&) = delete;
  Awaiting& operator=(const Awaiting&) = delete;
  ~Awaiting() {
    const std::lock_guard lock(state_.mutex);
    state_.awaited.erase(position_);
  }

  /// Whether the device was heard before the deadline.
  [[nodiscard]] bool waitUntil(Time deadline) {
    std::unique_lock lock(state_.mutex);
    return state_.heard.wait_until(lock, deadline, [this] { return position_->heard; });
  }

 private:
  QuorviNDState& state_;
  std::list<Awaited>::iterator position_;
};

}  // namespace

ChannelList DiscoverDevices(QuorviNDState& state, const IP4Set& addresses, milliseconds timeout, bool force,
                            const std::string& serialNumber) {
  ChannelList channels;
  {
    const std::lock_guard lock(state.mutex);
    std::string ignored;  // it is logged, and the other addresses count
    channels = UsableChannels(state, addresses, ignored);
    PurgeExpired(state);
  }
  Awaiting awaiting(state, serialNumber);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  auto searches = StartSearches(channels, timeout, force, serialNumber);
  // Cancelled, the others end at once and remove no device.
  if (!searches.empty() && !serialNumber.empty() && awaiting.waitUntil(deadline)) {
    for (auto& search : searches) search.cancel();
  }
  for (auto& search : searches) search.join();
  return channels;
}

}  // namespace quorvind
