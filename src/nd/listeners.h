#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

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

  /// Any thread, with no lock held that a listener takes. On return the listener is not running and never
  /// will again; called by the listener itself, it only never will again.
  void remove(std::size_t id);

  /// Calls every listener. What one throws passes on, after which the rest has not been called.
  void notify(const DiscoverInfo& info);

 private:
  struct Running;
  std::shared_ptr<const Listener> nextAfter(std::size_t& id);

  std::mutex mutex_;  ///< guards what follows; not held while a listener runs
  std::condition_variable changed_;
  std::map<std::size_t, std::shared_ptr<const Listener>> table_;
  std::size_t lastId_ = 0;
  std::size_t runningId_ = 0;  ///< 0: none
  std::thread::id runningOn_;
};

}  // namespace quorvind
