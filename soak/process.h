#pragma once

#include <span>

#include "report.h"

namespace qvsoak {

/// Notes every signal from now on, but for those by which the user ends the program. System calls are
/// interrupted by them.
void WatchSignals();

/// Signals other than those of SendSignals are violations, and any on a thread of the library.
void JudgeSignals(Report& report);

/// Threads, descriptors and memory of this process at one moment.
struct Resources {
  std::size_t threads;
  std::size_t descriptors;
  std::size_t residentKiB;

  static Resources now();
};

/// Whether the resources stayed flat once the first third, the warm-up, was over. Prints what they were.
/// @param samples  one a second
void JudgeResources(std::span<const Resources> samples, Report& report);

/// Prints where each thread of the process waits.
void DescribeThreads();

}  // namespace qvsoak
