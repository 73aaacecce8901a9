#ifndef QUORVIO_DETAIL_REGISTRY_HPP
#define QUORVIO_DETAIL_REGISTRY_HPP

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace quorvio::detail {

/// Shared states by number. The library gets the number as user data, so that a callback that comes late
/// finds nothing instead of an object that is gone. Any thread.
///
/// Each process has a table of its own, never destroyed: callbacks may run while the process exits, and in a
/// forked child the parent's table may be locked by a thread that is not there. The states in that table
/// are never destroyed in the child, where their locks may be held too.
template <class State>
class Registry {
 public:
  static void* add(std::shared_ptr<State> state) {
    auto& table = ofProcess();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto number = ++table.lastNumber;
    table.states.emplace(number, std::move(state));
    return reinterpret_cast<void*>(number);  // NOLINT(performance-no-int-to-ptr): never dereferenced
  }

  /// For callbacks. They only come after add() in the same process, hence no look at the process.
  static std::shared_ptr<State> find(void* number) {
    auto& table = *latest_.load(std::memory_order_acquire);
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto found = table.states.find(reinterpret_cast<std::uintptr_t>(number));
    return found == table.states.end() ? nullptr : found->second;
  }

  /// The caller holds the state as well, so that none is destroyed under the lock.
  static void remove(void* number) {
    auto& table = ofProcess();
    const std::lock_guard<std::mutex> lock(table.mutex);
    table.states.erase(reinterpret_cast<std::uintptr_t>(number));
  }

  /// Runs a short action that needs to see several states at once. It must not take a state's lock.
  template <class Action>
  static auto locked(Action action) {
    auto& table = ofProcess();
    const std::lock_guard<std::mutex> lock(table.mutex);
    return action();
  }

 private:
  struct Table {
    explicit Table(Table* parents) : parentsTable(parents) {}
    const pid_t process = ::getpid();
    Table* const parentsTable;  ///< keeps the parent's states reachable for leak checkers
    std::mutex mutex;           ///< guards what follows
    std::uintptr_t lastNumber = 0;
    std::unordered_map<std::uintptr_t, std::shared_ptr<State>> states;
  };

  static Table& ofProcess() {
    auto* table = latest_.load(std::memory_order_acquire);
    while (table == nullptr || table->process != ::getpid()) {
      auto fresh = std::make_unique<Table>(table);
      if (latest_.compare_exchange_strong(table, fresh.get())) table = fresh.release();
    }
    return *table;
  }

  inline static std::atomic<Table*> latest_{nullptr};
};

}  // namespace quorvio::detail

#endif
