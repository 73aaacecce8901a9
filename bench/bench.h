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

  void add(const Cost& other, double sign = 1) {
    seconds += sign * other.seconds;
    processor += sign * other.processor;
    switches += sign * other.switches;
    allocations += sign * other.allocations;
  }
};

/// Calls of malloc and its kin by the whole process, the shared library included.
double Allocations();

inline Cost CostUntilNow() {
  rusage used{};
  Require(::getrusage(RUSAGE_SELF, &used) == 0, "getrusage");
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  const std::chrono::duration<double> now = std::chrono::steady_clock::now().time_since_epoch();
  return {now.count(), seconds(used.ru_utime) + seconds(used.ru_stime),
          static_cast<double>(used.ru_nvcsw + used.ru_nivcsw), Allocations()};
}

/// Adds what the work costs to the sum.
template <class Work>
void Measure(Work work, int count, Cost& sum) {
  sum.add(CostUntilNow(), -1);
  for (int i = 0; i < count; ++i) work();
  sum.add(CostUntilNow());
}

/// Lets the library and another contestant do the same work by turns of a few pieces, in the order library,
/// other, other, library: measured one after the other, the second one was slower by a quarter. The row shows
/// the library's time; `ratio` is that time divided by the other's, `cpu_ratio` the same of the processor
/// time; `switches` and `their_switches` are context switches for each piece of work, `allocations` the
/// library's of the row.
template <class Library, class Other>
void CompareByTurns(benchmark::State& state, int count, Library library, Other other) {
  const int turn = count > 10 ? 10 : 1;
  Cost ours;
  Cost theirs;
  library();  // what happens only once is not counted
  other();
  while (state.KeepRunningBatch(count)) {
    for (int done = 0; done < count; done += 2 * turn) {
      Measure(library, turn, ours);
      Measure(other, 2 * turn, theirs);
      Measure(library, turn, ours);
    }
    state.SetIterationTime(ours.seconds);
  }
  state.counters["ratio"] = ours.seconds / theirs.seconds;
  state.counters["cpu_ratio"] = ours.processor / theirs.processor;
  state.counters["switches"] = ours.switches / count;
  state.counters["their_switches"] = theirs.switches / count;
  state.counters["allocations"] = ours.allocations;
}

}  // namespace qvbench
