#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace qvbench {

/// Shows the progress of the run and, at its end, how the library compares with the other contestants: the
/// statistics over the repetitions of one run, divided.
class RatioTable : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  using Statistic = std::map<std::string, double>;  ///< real time by the name of the run
  std::map<std::string, Statistic> statistics_;     ///< by the statistic's name
  Statistic processorTimes_;                        ///< of the whole process, medians
  Statistic switches_;                              ///< a round trip, medians
};

}  // namespace qvbench
