// What has a bound of its own: memory, idle cost.

#include <malloc.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <optional>
#include <thread>

#include "contestants.h"

namespace qvbench {
namespace {

using namespace std::chrono_literals;

/// A channel whose receive thread has handed out one byte, and the far end of its line, which does nothing by
/// itself.
struct OpenLine {
  OpenLine() : channel(listener.address()), farEnd(listener.accept()) {
    Require(WriteAll(farEnd.get(), std::array<uint8_t, 1>{}), "write");
    channel.receive(1);
  }

  Listener listener{Line::Tcp};
  Library channel;
  cppu::UniqueFd farEnd;
};

/// In KiB.
struct Memory {
  double heap;
  double resident;
  double writable;  ///< mlockall() would make it resident: heap and stacks, whether touched or not

  static Memory now() {
    const auto info = ::mallinfo2();
    std::ifstream statm("/proc/self/statm");
    std::array<double, 6> pages{};  // total, resident, shared, text, library, data
    for (auto& number : pages) Require(static_cast<bool>(statm >> number), "statm");
    const auto pageKiB = static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024;
    return {static_cast<double>(info.uordblks + info.hblkhd) / 1024, pages[1] * pageKiB, pages[5] * pageKiB};
  }
};

void OpenChannels(benchmark::State& state) {
  constexpr std::size_t kCount = QV_IO_HANDLE_COUNT - 1;
  const OpenLine first;  // what the process needs only once is there before the count begins
  std::array<std::optional<OpenLine>, kCount> lines;
  const auto before = Memory::now();
  const auto allocationsBefore = Allocations();
  for ([[maybe_unused]] auto _ : state) {
    for (auto& line : lines) line.emplace();
  }
  const auto after = Memory::now();
  state.counters["allocations"] = (Allocations() - allocationsBefore) / kCount;
  state.counters["heap_KiB"] = (after.heap - before.heap) / kCount;
  state.counters["resident_KiB"] = (after.resident - before.resident) / kCount;
  state.counters["mlockall_KiB"] = (after.writable - before.writable) / kCount;
}

/// What the process uses while the caller sleeps, which is one context switch.
void Sleep(benchmark::State& state, std::chrono::seconds time) {
  std::this_thread::sleep_for(500ms);  // until the last thread has gone to sleep
  const auto before = CostUntilNow();
  for ([[maybe_unused]] auto _ : state) std::this_thread::sleep_for(time);
  const auto after = CostUntilNow();
  state.counters["switches"] = after.switches - before.switches;
  state.counters["core_%"] = 100 * (after.processor - before.processor) / (after.seconds - before.seconds);
}

void IdleChannels(benchmark::State& state) {
  std::array<std::optional<OpenLine>, QV_IO_HANDLE_COUNT> lines;
  for (auto& line : lines) line.emplace();
  Sleep(state, 5s);
}

void VanishedPeer(benchmark::State& state) {
  OpenLine line;
  line.farEnd.reset();
  Sleep(state, 3s);
}

[[maybe_unused]] const bool kRegistered = [] {
  benchmark::RegisterBenchmark("memory of each of 63 channels", OpenChannels)->Iterations(1);
  benchmark::RegisterBenchmark("64 idle channels", IdleChannels)->Iterations(1)->UseRealTime();
  benchmark::RegisterBenchmark("a channel whose peer is gone", VanishedPeer)->Iterations(1)->UseRealTime();
  return true;
}();

}  // namespace
}  // namespace qvbench
