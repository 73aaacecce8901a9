#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "nd/device_filter.h"
#include "util/cancellable_wait.h"
#include "util/thread.h"

namespace quorvind {

/// A timed search that runs on a thread of its own. What goes wrong is logged: the devices that are known
/// count all the same.
class SearchTask {
 public:
  SearchTask(std::shared_ptr<DeviceFilter> filter, std::chrono::milliseconds timeout,
             const std::string& serialNumber);

  /// Ends the search before its time; then it removes no device.
  void cancel() noexcept;

  /// Waits for the end.
  void join() { thread_.join(); }

 private:
  class Search;

  std::shared_ptr<Search> search_;
  cppu::Thread thread_;
};

}  // namespace quorvind
