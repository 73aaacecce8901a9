#include "util/retired_threads.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "util/never_destroyed.h"

namespace cppu {

void RetiredThreads::add(Thread thread) noexcept {
  try {
    const std::lock_guard lock(mutex_);
    threads_.push_back(std::move(thread));
  } catch (const std::exception&) {
    thread.detach();  // no memory to remember it: it ends all the same
  }
  while (auto ended = takeEnded()) ended->join();
}

std::optional<Thread> RetiredThreads::takeEnded() {
  const std::lock_guard lock(mutex_);
  const auto now = std::chrono::steady_clock::now();
  const auto ended =
      std::ranges::find_if(threads_, [now](const Thread& thread) { return thread.endsBefore(now); });
  if (ended == threads_.end()) return {};
  std::swap(*ended, threads_.back());
  std::optional thread(std::move(threads_.back()));
  threads_.pop_back();
  return thread;
}

bool RetiredThreads::joinAll(std::chrono::milliseconds patience) {
  std::vector<Thread> all;
  {
    const std::lock_guard lock(mutex_);
    all.swap(threads_);
  }
  const auto deadline = std::chrono::steady_clock::now() + patience;
  bool allEnded = true;
  for (auto& retired : all) {
    if (retired.endsBefore(deadline)) {
      retired.join();
    } else {
      retired.detach();
      allEnded = false;
    }
  }
  return allEnded;
}

RetiredThreads& Retired() {
  static constinit NeverDestroyed<RetiredThreads> retired;
  return retired.value;
}

}  // namespace cppu
