#include "nd/search_task.h"

#include <exception>
#include <memory>

#include "nd/log.h"

namespace quorvind {

SearchTask::SearchTask(DeviceFilter& filter, std::chrono::milliseconds timeout,
                       const std::string& serialNumber) {
  // Shared, because the body of a thread must be copyable.
  const auto task = std::make_shared<std::packaged_task<void()>>(
      [&filter, timeout, serialNumber] { filter.search(timeout, serialNumber); });
  outcome_ = task->get_future();
  try {
    thread_ = cppu::Thread("qvio-search", [task] { (*task)(); });
  } catch (const std::exception& failure) {
    LogWarning("Could not start a search", failure.what());
  }
}

bool SearchTask::succeeds() {
  try {
    outcome_.get();  // a task that was never run gives a broken promise
    return true;
  } catch (const std::exception& failure) {
    LogWarning("Search failed", failure.what());
  } catch (...) {
    LogWarning("Search failed", "unknown failure");
  }
  return false;
}

}  // namespace quorvind
