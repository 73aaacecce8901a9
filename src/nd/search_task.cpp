#include "nd/search_task.h"

#include <exception>
#include <memory>

#include "nd/log.h"

namespace quorvind {
namespace {

/// Judged where it is thrown: an exception that two threads hold is destroyed by either, which no sanitizer
/// can follow.
bool Succeeds(DeviceFilter& filter, std::chrono::milliseconds timeout, const std::string& serialNumber) {
  try {
    filter.search(timeout, serialNumber);
    return true;
  } catch (const std::exception& failure) {
    LogWarning("Search failed", failure.what());
  } catch (...) {
    LogWarning("Search failed", "unknown failure");
  }
  return false;
}

}  // namespace

SearchTask::SearchTask(DeviceFilter& filter, std::chrono::milliseconds timeout,
                       const std::string& serialNumber) {
  // Shared, because the body of a thread must be copyable.
  const auto task = std::make_shared<std::packaged_task<bool()>>(
      [&filter, timeout, serialNumber] { return Succeeds(filter, timeout, serialNumber); });
  outcome_ = task->get_future();
  try {
    thread_ = cppu::Thread("qvio-search", [task] { (*task)(); });
  } catch (const std::exception& failure) {
    LogWarning("Could not start a search", failure.what());
  }
}

bool SearchTask::succeeds() {
  try {
    return outcome_.get();
  } catch (const std::future_error&) {
    return false;  // its thread was never started
  }
}

}  // namespace quorvind
