#pragma once

#include <cstdio>

namespace qvbench {

/// One line of the table of limits. The figure is wanted to be at most `limit`, in the same unit; a limit
/// below 0 means that there is none.
inline void PrintLimit(const char* what, double figure, double limit, const char* unit) {
  std::printf("%-62s %10.2f %-13s", what, figure, unit);
  if (limit >= 0) std::printf(" <= %-8g %s", limit, figure <= limit ? "met" : "MISSED");
  std::puts("");
  std::fflush(stdout);
}

}  // namespace qvbench
