#include "ratio_table.h"

#include <array>
#include <iomanip>
#include <optional>
#include <ostream>
#include <sstream>

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

using Statistic = std::map<std::string, double>;

/// None when a filter left out one of the two.
std::optional<double> Ratio(const Row& row, const Statistic& times) {
  const auto ours = times.find(RunName(row.name, Quorvio::kName));
  const auto theirs = times.find(RunName(row.name, row.against));
  if (ours == times.end() || theirs == times.end()) return {};
  return row.throughput ? theirs->second / ours->second : ours->second / theirs->second;
}

std::string Verdict(const Row& row, double ratio) {
  if (row.wanted == 0) return "";
  const bool met = row.throughput ? ratio >= row.wanted : ratio <= row.wanted;
  std::ostringstream text;
  text << (row.throughput ? ">= " : "<= ") << row.wanted << (met ? "  met" : "  MISSED");
  return text.str();
}

void Print(std::ostream& out, const Row& row, double medians, double quarters) {
  out << std::left << std::setw(36) << row.name << std::setw(21) << row.against << std::setw(7)
      << (row.throughput ? "speed" : "time") << std::right << std::fixed << std::setprecision(2)
      << std::setw(8) << medians << std::setw(10) << quarters << "   " << Verdict(row, medians) << '\n';
}

}  // namespace

void RatioTable::ReportRuns(const std::vector<Run>& runs) {
  std::vector<Run> shown;
  for (const auto& run : runs) {
    statistics_[run.aggregate_name][run.run_name.function_name] = run.GetAdjustedRealTime();
    if (run.aggregate_name == kMedian || run.aggregate_name == "cv") shown.push_back(run);
  }
  ConsoleReporter::ReportRuns(shown);
}

void RatioTable::Finalize() {
  auto& out = GetOutputStream();
  out << "\nlibquorvio against the others (of the times the smaller ratio is better, of the speeds the "
         "larger)\n\n"
      << std::setw(72) << "medians" << std::setw(10) << "quarters"
      << "   wanted of the medians\n";
  for (const auto& row : kRows) {
    const auto medians = Ratio(row, statistics_[kMedian]);
    const auto quarters = Ratio(row, statistics_[kQuarter]);
    if (medians && quarters) Print(out, row, *medians, *quarters);
  }
}

}  // namespace qvbench
