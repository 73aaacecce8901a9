#pragma once

#include <sys/resource.h>

namespace qvsim {

/// Every controller needs a descriptor, and the usual limit is 1024: raises it as far as the system allows.
inline void AllowManyDescriptors() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace qvsim
