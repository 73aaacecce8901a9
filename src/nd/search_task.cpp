#include "nd/search_task.h"

#include <exception>

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
  try {
    thread_ = cppu::Thread("qvio-search", [&filter, timeout, serialNumber, succeeded = succeeded_] {
      *succeeded = Succeeds(filter, timeout, serialNumber);
    });
  } catch (const std::exception& failure) {
    LogWarning("Could not start a search", failure.what());
  }
}

bool SearchTask::succeeds() {
  if (thread_.joinable()) thread_.join();
  return *succeeded_;
}

}  // namespace quorvind
