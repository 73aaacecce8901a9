#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "discovery_measures.h"
#include "limit_table.h"
#include "quorvio/quorvio.h"
#include "sim/controller_group.h"
#include "sim/descriptor_limit.h"

namespace qvbench {
namespace {

constexpr int kListings = 20;
constexpr std::chrono::milliseconds kTimeout{100};  // the library's default
constexpr std::chrono::milliseconds kSpread{50};

struct Outcome {
  std::size_t devices = 0;
  double timeouts = 0;  ///< time taken, in time-outs
  double processorTime = 0;
};

/// Milliseconds of the process, without the threads that play controllers: between two listings, these are
/// all but the calling one.
double ProcessorTime() {
  timespec used{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  double nanoseconds = static_cast<double>(used.tv_sec) * 1e9 + static_cast<double>(used.tv_nsec);
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    double ofTask = 0;
    if (task.path().filename() != std::to_string(::gettid()))
      std::ifstream(task.path() / "schedstat") >> ofTask;
    nanoseconds -= ofTask;
  }
  return nanoseconds / 1e6;
}

/// One listing of what is on the interfaces.
Outcome List(const std::string& ifaces) {
  const auto options = "iface-type network\ninclude-all\ndiscovery-timeout " +
                       std::to_string(kTimeout.count()) + '\n' + ifaces;
  std::string text(1 << 20, '\0');
  auto size = text.size();
  const auto processorTime = ProcessorTime();
  const auto begin = std::chrono::steady_clock::now();
  const auto result = QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, options.c_str(), text.data(), &size);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  text.resize(result == QV_IO_OK ? size : 0);
  const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) + (text.empty() ? 0 : 1);
  return {lines, time / kTimeout, ProcessorTime() - processorTime};
}

/// The worst of all listings; of the processor time the median.
void PrintWorst(const std::string& what, const std::string& ifaces, std::size_t devices) {
  Outcome worst{devices};
  std::array<double, kListings> processorTimes{};
  for (auto& processorTime : processorTimes) {
    const auto outcome = List(ifaces);
    worst = {std::min(worst.devices, outcome.devices), std::max(worst.timeouts, outcome.timeouts)};
    processorTime = outcome.processorTime;
  }
  std::ranges::sort(processorTimes);
  PrintLimit((what + ": missing in the worst of 20 listings").c_str(),
             static_cast<double>(devices) - static_cast<double>(worst.devices), 0, "devices");
  PrintLimit((what + ": time of the slowest").c_str(), worst.timeouts, 1.1, "time-outs");
  PrintLimit((what + ": processor time").c_str(), processorTimes[kListings / 2], -1, "ms");
}

}  // namespace

void MeasureSearches() {
  qvsim::AllowManyDescriptors();
  qvsim::EventLoop loop;
  qvsim::ControllerGroup group(loop, {.spread = kSpread});
  std::size_t count = 0;
  const auto growTo = [&](std::size_t wanted) {
    for (; count < wanted; ++count) group.add({"BENCH-" + std::to_string(count)}, qvsim::MakeEcho);
  };
  const std::string one = "iface network:127.0.0.1\n";
  growTo(1);
  PrintWorst("1 controller", one, count);
  growTo(64);
  PrintWorst("64 controllers", one, count);
  // All these addresses are on the loopback interface, so that each hears every controller.
  PrintWorst("64 controllers on 4 interfaces",
             one + "iface network:127.0.0.2\niface network:127.0.0.3\niface network:127.0.0.4", 4 * count);
  growTo(1000);
  PrintWorst("1000 controllers", one, count);
}

}  // namespace qvbench
