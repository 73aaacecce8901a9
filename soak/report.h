#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "util/guarded.h"

namespace qvsoak {

/// What was done, counted by name, and the violations. Any thread.
class Report {
 public:
  void count(const std::string& name, uint64_t number = 1) {
    counts_.with([&](auto& counts) { counts[name] += number; });
  }

  /// Something that must not happen. The first ones are printed.
  void violation(const std::string& text) {
    constexpr uint64_t kPrinted = 20;
    const auto before = violations_.with([](auto& violations) { return violations++; });
    if (before < kPrinted) std::fprintf(stderr, "soak: %s\n", text.c_str());
  }

  [[nodiscard]] uint64_t violations() const {
    return violations_.with([](auto violations) { return violations; });
  }

  void print() const {
    counts_.with([](const auto& counts) {
      for (const auto& [name, count] : counts)
        std::printf("  %-46s %15llu\n", name.c_str(), static_cast<unsigned long long>(count));
    });
    std::printf("%llu violations\n", static_cast<unsigned long long>(violations()));
    std::fflush(stdout);
  }

 private:
  cppu::Guarded<std::map<std::string, uint64_t>> counts_;
  cppu::Guarded<uint64_t> violations_;
};

}  // namespace qvsoak
