#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "util/guarded.h"

namespace qvsoak {

/// What was done and seen, counted by name, and what must not have been. Any thread.
class Ledger {
 public:
  void add(const std::string& name, uint64_t count = 1);

  /// Something that must not be. The first ones are told at once and remembered.
  void violation(const std::string& words);

  [[nodiscard]] uint64_t violations() const;
  [[nodiscard]] uint64_t count(const std::string& name) const;

  void print() const;

 private:
  struct Entries {
    std::map<std::string, uint64_t> counts;
    uint64_t violations = 0;
    std::vector<std::string> firstViolations;
  };
  cppu::Guarded<Entries> entries_;
};

}  // namespace qvsoak
