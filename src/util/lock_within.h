#pragma once

#include <chrono>
#include <mutex>
#include <thread>

namespace cppu {

/// Locks the mutex, but gives up at the deadline; then the lock does not own the mutex. For the end of the
/// process, when the holder may never run again.
inline std::unique_lock<std::mutex> LockWithin(std::mutex& mutex,
                                               std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex, std::try_to_lock);
  while (!lock && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    static_cast<void>(lock.try_lock());
  }
  return lock;
}

}  // namespace cppu
