#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <random>
#include <string>
#include <thread>

namespace qvsoak {

using Clock = std::chrono::steady_clock;
using Random = std::minstd_rand;

/// A number from least to most.
template <class Number>
Number Draw(Random& random, Number least, Number most) {
  return std::uniform_int_distribution<Number>(least, most)(random);
}

/// One thread of the program, as its body sees it.
class Worker {
 public:
  Worker(std::string name, unsigned seed, Clock::time_point end);

  /// Whether there is time for another round.
  [[nodiscard]] bool again() const { return Clock::now() < end_; }

  /// Says what comes next, for the case that it never ends.
  void doing(const char* step);

  /// Sleeps, at most until the end.
  void pause(std::chrono::microseconds time);
  void pause(std::chrono::milliseconds least, std::chrono::milliseconds most);

  Random& random() { return random_; }

 private:
  friend class Workers;

  const std::string name_;
  const Clock::time_point end_;
  Random random_;
  std::atomic<const char*> step_ = "starts";
  std::atomic<Clock::time_point> stepBegan_ = Clock::now();
  bool runs_ = true;  ///< guarded by Workers::mutex_
  std::thread thread_;
};

/// The program's threads. A watchdog ends the program, with a word about what each one is doing, when one of
/// them takes too long for a step.
class Workers {
 public:
  explicit Workers(Clock::time_point end);
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;
  ~Workers();

  void start(std::string name, std::function<void(Worker&)> body);

  /// Waits for all of them. The watchdog stays for what comes after.
  void join();

  /// Sends a signal to one of the threads that run. Any thread.
  void signalOne(int number, Random& random);

 private:
  void watch();
  [[nodiscard]] bool oneHangs() const;
  void describe() const;

  const Clock::time_point end_;
  mutable std::mutex mutex_;  ///< guards what follows
  std::condition_variable ended_;
  std::list<Worker> workers_;
  bool over_ = false;
  std::thread watchdog_;
};

}  // namespace qvsoak
