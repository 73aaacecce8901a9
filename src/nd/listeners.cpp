#include "nd/listeners.h"

#include <utility>

namespace quorvind {

std::size_t Listeners::add(Listener listener) {
  const std::lock_guard lock(mutex_);
  // Ids only grow, so that notify() can find its place again after any change.
  table_[++lastId_] = std::make_shared<const Listener>(std::move(listener));
  return lastId_;
}

void Listeners::remove(std::size_t id) {
  std::shared_ptr<const Listener> removed;  // destroyed after the lock is released
  const std::lock_guard lock(mutex_);
  const auto found = table_.find(id);
  if (found == table_.end()) return;
  removed = std::move(found->second);
  table_.erase(found);
}

/// The first listener after the id, which becomes its own. Null when there is none.
std::shared_ptr<const Listeners::Listener> Listeners::nextAfter(std::size_t& id) {
  const std::lock_guard lock(mutex_);
  const auto next = table_.upper_bound(id);
  if (next == table_.end()) return {};
  id = next->first;
  return next->second;
}

/// Takes the next listener by id each time, since the table may change while one runs.
void Listeners::notify(const DiscoverInfo& info) {
  std::size_t id = 0;
  while (const auto listener = nextAfter(id)) {
    if (!(*listener)(info)) remove(id);
  }
}

}  // namespace quorvind
