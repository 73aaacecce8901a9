#include "ratio_table.h"

#include <array>
#include <iomanip>
#include <limits>
#include <ostream>
#include <string_view>

#include "cases.h"
#include "contestants.h"

namespace qvbench {
namespace {

struct Row {
  const char* name;
  const char* against;
  bool throughput;  ///< the ratio of the speeds, wanted at least; else that of the times, wanted at most
  double wanted;    ///< 0: of interest only
};

constexpr const char* kBare = BareDescriptor::kName;
constexpr const char* kThread = HandWrittenThread::kName;
constexpr const char* kAsio = AsioStream::kName;

constexpr std::array<Row, 15> kRows{{{kRoundTripTcp, kThread, false, 1.05},
                                     {kRoundTripTcp, kBare, false, 0},
                                     {kRoundTripTcp, kAsio, false, 0},
                                     {kRoundTripTerminal, kThread, false, 1.05},
                                     {kRoundTripTerminal, kBare, false, 0},
                                     {kRoundTripTerminal, kAsio, false, 0},
                                     {kReceiving, kThread, true, 2},
                                     {kReceiving, kBare, true, 0.8},
                                     {kReceiving, kAsio, true, 0},
                                     {kSending, kThread, true, 0},
                                     {kSending, kBare, true, 0.95},
                                     {kSending, kAsio, true, 0},
                                     {kEchoing, kThread, true, 0},
                                     {kEchoing, kBare, true, 0.8},
                                     {kEchoing, kAsio, true, 0}}};

std::string Verdict(const Row& row, double ratio) {
  if (row.wanted == 0) return "";
  const bool met = row.throughput ? ratio >= row.wanted : ratio <= row.wanted;
  return met ? "met" : "MISSED";
}

void PrintWanted(std::ostream& out, const Row& row) {
  if (row.wanted == 0) {
    out << std::setw(9) << "";
  } else {
    out << (row.throughput ? ">= " : "<= ") << std::left << std::setw(6) << row.wanted;
  }
}

}  // namespace

void RatioTable::ReportRuns(const std::vector<Run>& runs) {
  std::vector<Run> shown;
  for (const auto& run : runs) {
    if (run.aggregate_name == "median") medians_[run.run_name.function_name] = run.GetAdjustedRealTime();
    if (run.aggregate_name == "median" || run.aggregate_name == "cv") shown.push_back(run);
  }
  ConsoleReporter::ReportRuns(shown);
}

void RatioTable::Finalize() {
  auto& out = GetOutputStream();
  out << "\nlibquorvio against the others (medians; time: smaller is better, speed: larger)\n\n";
  for (const auto& row : kRows) {
    const auto ours = medians_.find(RunName(row.name, Quorvio::kName));
    const auto theirs = medians_.find(RunName(row.name, row.against));
    if (ours == medians_.end() || theirs == medians_.end()) continue;  // left out by a filter
    const auto ratio = row.throughput ? theirs->second / ours->second : ours->second / theirs->second;
    out << std::left << std::setw(36) << row.name << std::setw(21) << row.against << std::setw(7)
        << (row.throughput ? "speed" : "time") << std::right << std::fixed << std::setprecision(2)
        << std::setw(6) << ratio << "   ";
    PrintWanted(out, row);
    out << Verdict(row, ratio) << '\n';
  }
}

}  // namespace qvbench
