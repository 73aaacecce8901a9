#include <benchmark/benchmark.h>

#include <vector>

#include "cases.h"
#include "processors.h"
#include "ratio_table.h"

namespace {

/// The arguments of the caller come last and win: what stands here suits a machine that others use as well.
std::vector<char*> WithDefaults(int argc, char** argv) {
  static char interleaving[] = "--benchmark_enable_random_interleaving=true";
  static char repetitions[] = "--benchmark_repetitions=61";
  static char aggregates[] = "--benchmark_report_aggregates_only=true";
  static char color[] = "--benchmark_color=false";
  std::vector<char*> arguments{argv[0], interleaving, repetitions, aggregates, color};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  return arguments;
}

}  // namespace

int main(int argc, char** argv) {
  qvbench::RunOnNearProcessor();
  auto arguments = WithDefaults(argc, argv);
  auto count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;
  qvbench::RegisterCases();
  qvbench::RatioTable table;
  benchmark::RunSpecifiedBenchmarks(&table);
}
