#pragma once

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "util/unique_fd.h"

namespace qvbench {

/// A step that fails spoils every figure after it, and leaves threads that wait forever: it ends the program.
inline void Require(bool succeeded, const char* step) {
  if (succeeded) return;
  std::perror(step);
  std::_Exit(EXIT_FAILURE);
}

/// Takes the result of a call that opens a descriptor; a failed one ends the program.
inline cppu::UniqueFd Opened(int fd, const char* step) {
  Require(fd >= 0, step);
  return cppu::UniqueFd(fd);
}

/// What something took, the far end included, which plays in the same process.
struct Cost {
  double seconds = 0;
  double processor = 0;  ///< seconds of all threads
  double switches = 0;   ///< of contexts
  double allocations = 0;
  double peakKiB = 0;  ///< resident memory; since the process began
};

/// Calls of malloc and its kin by the whole process, the shared library included.
double Allocations();

inline Cost UsedUntilNow() {
  rusage used{};
  Require(::getrusage(RUSAGE_SELF, &used) == 0, "getrusage");
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  const std::chrono::duration<double> now = std::chrono::steady_clock::now().time_since_epoch();
  return {now.count(), seconds(used.ru_utime) + seconds(used.ru_stime),
          static_cast<double>(used.ru_nvcsw + used.ru_nivcsw), Allocations(),
          static_cast<double>(used.ru_maxrss)};
}

template <class Work>
Cost CostOf(Work work, int count) {
  work();  // what happens only once is not counted
  const auto before = UsedUntilNow();
  for (int i = 0; i < count; ++i) work();
  const auto after = UsedUntilNow();
  return {after.seconds - before.seconds, after.processor - before.processor,
          after.switches - before.switches, after.allocations - before.allocations,
          after.peakKiB - before.peakKiB};
}

/// Lets the library and another contestant do the same work by turns, so that both meet the same machine. The
/// row shows the library's time; `ratio` is that time divided by the other's, `cpu_ratio` the same of the
/// processor time; `switches` and `their_switches` are context switches for each piece of work, `allocations`
/// the library's of the row.
template <class Library, class Other>
void CompareByTurns(benchmark::State& state, int count, Library library, Other other) {
  while (state.KeepRunningBatch(count)) {
    const auto theirs = CostOf(other, count);
    const auto ours = CostOf(library, count);
    state.SetIterationTime(ours.seconds);
    state.counters["ratio"] = ours.seconds / theirs.seconds;
    state.counters["cpu_ratio"] = ours.processor / theirs.processor;
    state.counters["switches"] = ours.switches / count;
    state.counters["their_switches"] = theirs.switches / count;
    state.counters["allocations"] = ours.allocations;
  }
}

}  // namespace qvbench
