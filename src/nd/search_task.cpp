#include "nd/search_task.h"

#include <exception>
#include <utility>

#include "nd/log.h"
#include "util/forced_unwind.h"

namespace quorvind {

/// The search itself, shared by the task and its thread.
class SearchTask::Search final : public cppu::Worker {
 public:
  Search(std::shared_ptr<DeviceFilter> filter, std::chrono::milliseconds timeout, std::string serialNumber)
      : filter_(std::move(filter)), timeout_(timeout), serialNumber_(std::move(serialNumber)) {}

  /// Failures are handled on this thread: an exception that two threads share may be destroyed by either,
  /// which sanitizers cannot follow.
  void run() override {
    try {
      filter_->search(timeout_, serialNumber_, wait_);
    } catch (const std::exception& failure) {
      LogWarning("Search failed", failure.what());
    } catch (...) {
      if (cppu::IsForcedUnwind()) throw;
      LogWarning("Search failed", "unknown failure");
    }
  }

  void stop() noexcept override { wait_.cancel(); }

 private:
  const std::shared_ptr<DeviceFilter> filter_;
  const std::chrono::milliseconds timeout_;
  const std::string serialNumber_;
  cppu::CancellableWait wait_;
};

SearchTask::SearchTask(std::shared_ptr<DeviceFilter> filter, std::chrono::milliseconds timeout,
                       const std::string& serialNumber)
    : search_(std::make_shared<Search>(std::move(filter), timeout, serialNumber)) {
  try {
    thread_ = cppu::Thread("qvio-search", search_);
  } catch (const std::exception& failure) {
    LogWarning("Could not start a search", failure.what());
  }
}

void SearchTask::cancel() noexcept { search_->stop(); }

}  // namespace quorvind
