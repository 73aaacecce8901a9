#pragma once

#include <cstdio>
#include <cstdlib>

namespace qvfuzz {

/// Ends the program with a word on standard error unless the property holds. In a fuzz target that is a
/// finding.
inline void Check(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "fuzz: does not hold: %s\n", property);
  std::abort();
}

}  // namespace qvfuzz
