#include "resource_watch.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <span>
#include <string>

#include "tests/support/process.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

constexpr auto kLeastPeriod = 500ms;  // a shorter one says little about the load

/// How far the median of the last third may be above that of the second. Threads and descriptors come and go
/// with channels and searches; in a minute on a loaded machine few do, and a third may have some channels
/// more. One that is lost at every open would be hundreds.
struct Watched {
  const char* name;
  std::size_t Resources::*value;
  std::size_t growth;
  std::size_t growthInShortRun;
};
constexpr std::array kWatched{Watched{"threads", &Resources::threads, 4, 12},
                              Watched{"descriptors", &Resources::descriptors, 8, 32},
                              Watched{"resident KiB", &Resources::residentKiB, 2048, 16384}};
/// Samples. In a shorter third memory is still warming up: what is over is kept for half a minute, and malloc
/// takes what the busiest moment needed.
constexpr std::size_t kLongThird = 60;

std::size_t ResidentKiB() {
  std::ifstream file("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  file >> total >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

/// Sanitizers keep what was freed for a while, and find leaks on their own.
constexpr bool kJudgesMemory = !SOAK_SANITIZED;

double ProcessorSeconds() {
  timespec used{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

std::size_t Median(std::span<const Resources> samples, std::size_t Resources::*value) {
  std::vector<std::size_t> values;
  for (const auto& sample : samples) values.push_back(sample.*value);
  std::ranges::nth_element(values, values.begin() + std::ssize(values) / 2);
  return values.at(values.size() / 2);
}

}  // namespace

Resources Resources::now() {
  return {qvtest::EntriesOf("/proc/self/task").size(), qvtest::Descriptors(), ResidentKiB()};
}

void ResourceWatch::run(Worker& worker, Pace& pace) {
  auto usedBefore = ProcessorSeconds();
  auto before = Clock::now();
  while (worker.again()) {
    worker.pause(1s);
    samples_.push_back(Resources::now());
    const std::chrono::duration<double> time = Clock::now() - before;
    const auto used = ProcessorSeconds();
    if (time > kLeastPeriod) pace.adapt((used - usedBefore) / time.count());
    usedBefore = used;
    before = Clock::now();
  }
}

void ResourceWatch::judge(Ledger& ledger) const {
  const auto third = samples_.size() / 3;
  if (third == 0) return;
  const std::span all(samples_);
  for (const auto& [name, value, growthInLongRun, growthInShortRun] : kWatched) {
    const auto growth = third < kLongThird ? growthInShortRun : growthInLongRun;
    const auto second = Median(all.subspan(third, third), value);
    const auto last = Median(all.last(third), value);
    const auto peak = std::ranges::max(all, {}, value).*value;
    std::printf("  %-14s median of the second third %zu, of the last %zu (at most %zu more), peak %zu\n",
                name, second, last, growth, peak);
    if (last > second + growth && (kJudgesMemory || value != &Resources::residentKiB))
      ledger.violation(std::string(name) + " grow");
  }
}

}  // namespace qvsoak
