#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace qvbench {

/// Shows the progress of the run and, at its end, how the library compares with the other contestants: the
/// medians over the repetitions of one run, divided.
class RatioTable : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  std::map<std::string, double> medians_;  ///< real time by the name of the run
};

}  // namespace qvbench
