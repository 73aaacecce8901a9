#pragma once

#include <cstddef>
#include <vector>

#include "ledger.h"
#include "pace.h"
#include "workers.h"

namespace qvsoak {

/// Threads, descriptors and memory of this process at one moment.
struct Resources {
  std::size_t threads;
  std::size_t descriptors;
  std::size_t residentKiB;

  static Resources now();
};

/// Looks at the resources once a second, and sets the pace.
class ResourceWatch {
 public:
  /// The body of its thread.
  void run(Worker& worker, Pace& pace);

  /// Whether they stayed flat once the first third, the warm-up, was over. Prints what they were.
  void judge(Ledger& ledger) const;

 private:
  std::vector<Resources> samples_;
};

}  // namespace qvsoak
