#include "ledger.h"

#include <cstdio>

namespace qvsoak {
namespace {

constexpr std::size_t kRemembered = 20;

}  // namespace

void Ledger::add(const std::string& name, uint64_t count) {
  entries_.with([&](Entries& entries) { entries.counts[name] += count; });
}

void Ledger::violation(const std::string& words) {
  const bool isTold = entries_.with([&](Entries& entries) {
    ++entries.violations;
    if (entries.firstViolations.size() == kRemembered) return false;
    entries.firstViolations.push_back(words);
    return true;
  });
  if (isTold) std::fprintf(stderr, "soak: %s\n", words.c_str());
}

uint64_t Ledger::violations() const {
  return entries_.with([](const Entries& entries) { return entries.violations; });
}

uint64_t Ledger::count(const std::string& name) const {
  return entries_.with([&](const Entries& entries) {
    const auto found = entries.counts.find(name);
    return found == entries.counts.end() ? 0 : found->second;
  });
}

void Ledger::print() const {
  entries_.with([](const Entries& entries) {
    for (const auto& [name, count] : entries.counts)
      std::printf("  %-46s %15llu\n", name.c_str(), static_cast<unsigned long long>(count));
    std::printf("%llu violations\n", static_cast<unsigned long long>(entries.violations));
    for (const auto& words : entries.firstViolations) std::printf("  %s\n", words.c_str());
  });
  std::fflush(stdout);
}

}  // namespace qvsoak
