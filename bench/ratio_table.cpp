#include "ratio_table.h"

#include <array>
#include <iomanip>
#include <optional>
#include <ostream>
#include <sstream>

#include "cases.h"
#include "contestants.h"
#include "query_clients.h"

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
constexpr const char* kLarge = LargeReadsThread::kName;
constexpr const char* kBlocking = BlockingThread::kName;

constexpr std::array<Row, 22> kRows{{{kRoundTripTcp, kThread, false, 1.05},
                                     {kRoundTripTcp, kLarge, false, 0},
                                     {kRoundTripTcp, kBlocking, false, 0},
                                     {kRoundTripTcp, kBare, false, 0},
                                     {kRoundTripTcp, kAsio, false, 0},
                                     {kRoundTripTerminal, kThread, false, 1.05},
                                     {kRoundTripTerminal, kLarge, false, 0},
                                     {kRoundTripTerminal, kBare, false, 0},
                                     {kRoundTripTerminal, kAsio, false, 0},
                                     {kQuery, kThread, false, 1.1},
                                     {kQuery, CFunctionsClient::kName, false, 1.1},
                                     {kReceiving, kThread, true, 2},
                                     {kReceiving, kLarge, true, 0},
                                     {kReceiving, kBlocking, true, 0},
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
      << std::setw(8) << medians << std::setw(10) << quarters << "   " << std::left << std::setw(15)
      << Verdict(row, medians);
}

}  // namespace

void RatioTable::ReportRuns(const std::vector<Run>& runs) {
  std::vector<Run> shown;
  for (const auto& run : runs) {
    const auto& name = run.run_name.function_name;
    statistics_[run.aggregate_name][name] = run.GetAdjustedRealTime();
    if (run.aggregate_name == kMedian) {
      processorTimes_[name] = run.GetAdjustedCPUTime();
      if (run.counters.contains(kSwitches)) switches_[name] = run.counters.at(kSwitches);
    }
    if (run.aggregate_name == kMedian || run.aggregate_name == "cv") shown.push_back(run);
  }
  ConsoleReporter::ReportRuns(shown);
}

void RatioTable::Finalize() {
  auto& out = GetOutputStream();
  out << "\nlibquorvio against the others (of the times the smaller ratio is better, of the speeds the "
         "larger)\n\n"
      << std::setw(72) << "medians" << std::setw(10) << "quarters"
      << "   wanted of the medians   processor  switches\n";
  for (const auto& row : kRows) {
    const auto medians = Ratio(row, statistics_[kMedian]);
    const auto quarters = Ratio(row, statistics_[kQuarter]);
    if (!medians || !quarters) continue;
    Print(out, row, *medians, *quarters);
    const auto ours = RunName(row.name, Quorvio::kName);
    const auto theirs = RunName(row.name, row.against);
    out << std::right << std::setw(12) << processorTimes_[ours] / processorTimes_[theirs];
    if (switches_.contains(ours)) out << std::setw(10) << switches_[ours] << " : " << switches_[theirs];
    out << '\n';
  }
}

}  // namespace qvbench
