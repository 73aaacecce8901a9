#include "processors.h"

#include <sched.h>

#include "descriptor.h"

namespace qvbench {
namespace {

struct Processors {
  int nearEnd;
  int farEnd;
};

int FirstFrom(int begin, const cpu_set_t& allowed, int otherwise) {
  for (int processor = begin; processor < CPU_SETSIZE; ++processor) {
    if (CPU_ISSET(static_cast<unsigned>(processor), &allowed)) return processor;
  }
  return otherwise;
}

Processors FindProcessors() {
  cpu_set_t allowed;
  Require(::sched_getaffinity(0, sizeof allowed, &allowed) == 0, "sched_getaffinity");
  const int nearEnd = FirstFrom(0, allowed, 0);
  return {nearEnd, FirstFrom(nearEnd + 1, allowed, nearEnd)};
}

/// As the process was started; later its threads may use less.
const Processors& ProcessorsAtStart() {
  static const auto processors = FindProcessors();
  return processors;
}

void RunOn(int processor) {
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(static_cast<unsigned>(processor), &only);
  Require(::sched_setaffinity(0, sizeof only, &only) == 0, "sched_setaffinity");
}

}  // namespace

void RunOnNearProcessor() { RunOn(ProcessorsAtStart().nearEnd); }
void RunOnFarProcessor() { RunOn(ProcessorsAtStart().farEnd); }

}  // namespace qvbench
