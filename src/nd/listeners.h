#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include "nd/discover_info.h"

namespace quorvind {

/// The listeners of a host. They are called one after the other by one thread at a time, without a lock held,
/// so that they may take locks of their own.
class Listeners {
 public:
  /// Stays registered as long as it returns true.
  using Listener = std::function<bool(const DiscoverInfo&)>;

  /// Any thread. Returns the registration id.
  std::size_t add(Listener listener);

  /// Any thread; never waits. The listener is not called again, but a running call continues, so the listener
  /// must own what it uses.
  void remove(std::size_t id);

  /// Calls every listener, until one throws; its exception passes on.
  void notify(const DiscoverInfo& info);

 private:
  std::shared_ptr<const Listener> nextAfter(std::size_t& id);

  std::mutex mutex_;  ///< guards what follows; not held while a listener runs
  std::map<std::size_t, std::shared_ptr<const Listener>> table_;
  std::size_t lastId_ = 0;
};

}  // namespace quorvind
