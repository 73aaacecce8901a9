#include "nd/listeners.h"

#include <utility>

namespace quorvind {

std::size_t Listeners::add(Listener listener) {
  const std::lock_guard lock(mutex_);
  table_[++lastId_] = std::make_shared<const Listener>(std::move(listener));
  return lastId_;
}

void Listeners::remove(std::size_t id) {
  std::shared_ptr<const Listener> removed;  // destroyed after the lock is let go
  std::unique_lock lock(mutex_);
  const auto found = table_.find(id);
  if (found != table_.end()) {
    removed = std::move(found->second);
    table_.erase(found);
  }
  if (runningOn_ == std::this_thread::get_id()) return;
  changed_.wait(lock, [&] { return runningId_ != id; });
}

/// The state while a listener runs; ends with it, however it ends.
struct Listeners::Running {
  explicit Running(Listeners& table) : listeners(table) {}
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  ~Running() {
    const std::lock_guard lock(listeners.mutex_);
    listeners.runningId_ = 0;
    listeners.runningOn_ = {};
    listeners.changed_.notify_all();
  }
  Listeners& listeners;
};

/// The first listener behind the id, marked as running; the id becomes its own. Null when there is none.
std::shared_ptr<const Listeners::Listener> Listeners::nextAfter(std::size_t& id) {
  const std::lock_guard lock(mutex_);
  const auto next = table_.upper_bound(id);
  if (next == table_.end()) return {};
  id = runningId_ = next->first;
  runningOn_ = std::this_thread::get_id();
  return next->second;
}

void Listeners::notify(const DiscoverInfo& info) {
  std::size_t id = 0;
  while (auto listener = nextAfter(id)) {
    bool stays = true;
    {
      const Running running(*this);
      stays = (*listener)(info);
      listener.reset();  // a listener that was removed meanwhile is destroyed before remove() returns
    }
    if (!stays) remove(id);
  }
}

}  // namespace quorvind
