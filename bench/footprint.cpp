#include <malloc.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "limit_measures.h"
#include "limit_table.h"
#include "open_line.h"

namespace qvbench {
namespace {

using namespace std::chrono_literals;

template <std::size_t Count>
using Lines = std::array<std::optional<OpenLine>, Count>;

template <std::size_t Count>
void OpenAll(Lines<Count>& lines) {
  for (auto& line : lines) line.emplace(Line::Tcp);
}

double HeapBytes() {
  const auto info = ::mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

struct Mapped {
  double resident;
  double writable;  ///< what mlockall() would make resident: heap and stacks, whether touched or not
};

Mapped MappedBytes() {
  std::ifstream statm("/proc/self/statm");
  double total = 0;
  double resident = 0;
  double shared = 0;
  double text = 0;
  double library = 0;
  double data = 0;
  Require(static_cast<bool>(statm >> total >> resident >> shared >> text >> library >> data), "statm");
  const auto page = static_cast<double>(::sysconf(_SC_PAGESIZE));
  return {resident * page, data * page};
}

double ProcessorSeconds() {
  timespec used{};
  Require(::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used) == 0, "processor time");
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

bool IsReceiveThread(const std::filesystem::path& task) {
  std::string name;
  std::getline(std::ifstream(task / "comm"), name);
  return name == "qvio-rx";
}

double ContextSwitches(const std::filesystem::path& task) {
  std::ifstream status(task / "status");
  double sum = 0;
  for (std::string key, value; status >> key && std::getline(status, value);) {
    if (key.ends_with("voluntary_ctxt_switches:")) sum += std::stod(value);
  }
  return sum;
}

struct ReceiveThreads {
  std::size_t count = 0;
  double switches = 0;  ///< each wake-up of a thread ends in one more
};

ReceiveThreads LookAtReceiveThreads() {
  ReceiveThreads threads;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (!IsReceiveThread(task)) continue;
    ++threads.count;
    threads.switches += ContextSwitches(task);
  }
  return threads;
}

/// Processor time of the whole process while the caller sleeps, in percent of one core.
template <class Duration>
double LoadDuring(Duration time) {
  const auto before = ProcessorSeconds();
  std::this_thread::sleep_for(time);
  return 100 * (ProcessorSeconds() - before) / std::chrono::duration<double>(time).count();
}

}  // namespace

void MeasureMemory() {
  constexpr double kKiB = 1024;
  constexpr std::size_t kCount = QV_IO_HANDLE_COUNT - 1;
  const OpenLine first(Line::Tcp);  // what the process needs but once is there before the count begins
  Lines<kCount> lines;
  const auto heap = HeapBytes();
  const auto before = MappedBytes();
  OpenAll(lines);
  const auto after = MappedBytes();
  PrintLimit("heap of an open channel", (HeapBytes() - heap) / kCount / kKiB, 80, "KiB");
  PrintLimit("resident memory of an open channel, its stack included",
             (after.resident - before.resident) / kCount / kKiB, 20, "KiB");
  PrintLimit("memory of an open channel under mlockall", (after.writable - before.writable) / kCount / kKiB,
             -1, "KiB");
}

void MeasureIdleChannels() {
  constexpr double kMeasurable = 0.01;  // the sleeping and counting of this program itself
  constexpr auto kTime = 5s;
  Lines<QV_IO_HANDLE_COUNT> lines;
  OpenAll(lines);
  std::this_thread::sleep_for(500ms);  // until the last thread has gone to sleep
  const auto before = LookAtReceiveThreads();
  Require(before.count == lines.size() && before.switches > 0, "counting the receive threads");
  const auto load = LoadDuring(kTime);
  PrintLimit("wake-ups of 64 idle channels in 5 s", LookAtReceiveThreads().switches - before.switches, 0, "");
  PrintLimit("processor time of 64 idle channels", load, kMeasurable, "% of a core");
}

void MeasureVanishedPeer() {
  constexpr auto kTime = 3s;
  OpenLine line(Line::Tcp);
  line.loseFarEnd();
  const auto before = line.notices();
  const auto load = LoadDuring(kTime);
  PrintLimit("processor time of a channel whose peer is gone", load, 1, "% of a core");
  PrintLimit("notices of a channel whose peer is gone",
             static_cast<double>(line.notices() - before) / static_cast<double>(kTime.count()), -1,
             "a second");
}

}  // namespace qvbench
