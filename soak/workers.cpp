#include "workers.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tests/support/process.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 60s;  ///< for one step of a thread
constexpr auto kPatienceAtEnd = 30s;
constexpr int kHangs = 3;  ///< exit status

/// What the system tells of a thread of this process.
std::string FirstLine(const std::string& task, const char* file) {
  std::ifstream in("/proc/self/task/" + task + "/" + file);
  std::string line;
  std::getline(in, line);
  return line;
}

}  // namespace

Worker::Worker(std::string name, unsigned seed, Clock::time_point end)
    : name_(std::move(name)), end_(end), random_(seed) {}

void Worker::doing(const char* step) {
  stepBegan_ = Clock::now();
  step_ = step;
}

void Worker::pause(std::chrono::microseconds time) {
  doing("pauses");
  std::this_thread::sleep_until(std::min(Clock::now() + time, end_));
}

void Worker::pause(std::chrono::milliseconds least, std::chrono::milliseconds most) {
  pause(std::chrono::milliseconds(Draw(random_, least.count(), most.count())));
}

Workers::Workers(Clock::time_point end) : end_(end), watchdog_([this] { watch(); }) {}

Workers::~Workers() {
  {
    const std::lock_guard lock(mutex_);
    over_ = true;
    ended_.notify_all();
  }
  watchdog_.join();
}

void Workers::start(std::string name, std::function<void(Worker&)> body) {
  const std::lock_guard lock(mutex_);
  auto& worker = workers_.emplace_back(std::move(name), static_cast<unsigned>(workers_.size() + 1), end_);
  worker.thread_ = std::thread([this, &worker, body = std::move(body)] {
    body(worker);
    const std::lock_guard held(mutex_);
    worker.runs_ = false;
  });
}

void Workers::join() {
  for (auto& worker : workers_) worker.thread_.join();
}

void Workers::signalOne(int number, Random& random) {
  const std::lock_guard lock(mutex_);  // so that the thread is there when the signal is sent
  const auto chosen = std::next(workers_.begin(), Draw<long>(random, 0, std::ssize(workers_) - 1));
  if (chosen->runs_) ::pthread_kill(chosen->thread_.native_handle(), number);
}

bool Workers::oneHangs() const {
  const auto now = Clock::now();
  return now > end_ + kPatienceAtEnd || std::ranges::any_of(workers_, [&](const Worker& worker) {
           return worker.runs_ && now - worker.stepBegan_.load() > kPatience;
         });
}

void Workers::watch() {
  std::unique_lock lock(mutex_);
  while (!over_) {
    ended_.wait_for(lock, 500ms);
    if (over_ || !oneHangs()) continue;
    describe();
    std::_Exit(kHangs);
  }
}

void Workers::describe() const {
  std::puts("soak: something hangs. The program's threads that run, and what they are doing:");
  for (const auto& worker : workers_) {
    if (!worker.runs_) continue;
    const std::chrono::duration<double> time = Clock::now() - worker.stepBegan_.load();
    std::printf("  %-20s %s, for %.1f s\n", worker.name_.c_str(), worker.step_.load(), time.count());
  }
  std::puts("All threads of the process: name, where they wait, system call");
  for (const auto& task : qvtest::EntriesOf("/proc/self/task"))
    std::printf("  %s %-16s %s %s\n", task.c_str(), FirstLine(task, "comm").c_str(),
                FirstLine(task, "wchan").c_str(), FirstLine(task, "syscall").c_str());
  std::fflush(stdout);
}

}  // namespace qvsoak
