#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "nd/device_filter.h"
#include "util/thread.h"

namespace quorvind {

/// A timed search that runs on a thread of its own; its end is awaited at the latest by the destructor. The
/// filter must outlive it.
class SearchTask {
 public:
  SearchTask(DeviceFilter& filter, std::chrono::milliseconds timeout, const std::string& serialNumber);
  SearchTask(SearchTask&&) = default;
  SearchTask& operator=(SearchTask&&) = delete;
  ~SearchTask() {
    if (thread_.joinable()) thread_.join();
  }

  /// Waits for the end. False when the search, or the start of its thread, has thrown.
  [[nodiscard]] bool succeeds();

 private:
  /// Written by the thread, read after it was joined. Shared, because the task may be moved meanwhile.
  std::shared_ptr<bool> succeeded_ = std::make_shared<bool>(false);
  cppu::Thread thread_;
};

}  // namespace quorvind
