#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench.h"
#include "nd/device_filter.h"
#include "nd/host.h"
#include "nd/packet.h"
#include "quorvio/quorvio.hpp"
#include "sim/controller_group.h"
#include "sim/descriptor_limit.h"
#include "sim/discovery_side.h"
#include "tests/support/private_network.h"

namespace qvbench {
namespace {

using namespace std::chrono_literals;
using namespace quorvind;
using quorvio::Options;

constexpr int kListings = 20;
constexpr auto kTimeout = 100ms;  // the library's default
constexpr auto kSpread = 50ms;

/// So many controllers on loopback.
struct Controllers {
  explicit Controllers(std::size_t count) : group(loop, {.spread = kSpread}) {
    qvsim::AllowManyDescriptors();
    for (std::size_t i = 0; i < count; ++i) group.add({"BENCH-" + std::to_string(i)}, qvsim::MakeEcho);
  }

  qvsim::EventLoop loop;
  qvsim::ControllerGroup group;
};

/// Milliseconds of the process, without the threads that play controllers: between two listings, these are
/// all but the calling one.
double ProcessorTime() {
  double milliseconds = CostUntilNow().processor * 1e3;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    double nanoseconds = 0;
    if (task.path().filename() != std::to_string(::gettid()))
      std::ifstream(task.path() / "schedstat") >> nanoseconds;
    milliseconds -= nanoseconds / 1e6;
  }
  return milliseconds;
}

/// How many devices there are. By the C function: quorvio.hpp searches twice when its first buffer is too
/// small.
std::size_t List(const Options& ifaces) {
  const auto options = "iface-type network\ninclude-all\n" + ifaces.text();
  std::string text(1U << 20U, '\0');
  auto size = text.size();
  Require(QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, options.c_str(), text.data(), &size) == QV_IO_OK,
          "listing");
  text.resize(size);
  return static_cast<std::size_t>(std::ranges::count(text, '\n')) + (text.empty() ? 0 : 1);
}

/// Arguments: controllers; interfaces, all on loopback, so that each hears every controller. Counters: the
/// worst of all listings; of the processor time the mean.
void ListControllers(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const Controllers controllers(count);
  Options options;
  for (int i = 1; i <= state.range(1); ++i) options.add("iface", "network:127.0.0." + std::to_string(i));
  const auto expected = count * static_cast<std::size_t>(state.range(1));
  std::size_t fewest = expected;
  double slowest = 0;
  double processor = 0;
  for ([[maybe_unused]] auto _ : state) {
    const auto processorBefore = ProcessorTime();
    const auto began = std::chrono::steady_clock::now();
    const auto devices = List(options);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - began;
    state.SetIterationTime(time.count());
    fewest = std::min(fewest, devices);
    slowest = std::max(slowest, time / kTimeout);
    processor += ProcessorTime() - processorBefore;
  }
  state.counters["missing"] = static_cast<double>(expected) - static_cast<double>(fewest);
  state.counters["slowest_timeouts"] = slowest;
  state.counters["processor_ms"] = processor / kListings;
}

/// From the cache, after a search.
void OpenBySerialNumber(benchmark::State& state) {
  const Controllers controllers(64);
  const auto iface = Options().add("iface", "network:127.0.0.1");
  Require(List(iface) == 64, "controllers");
  for ([[maybe_unused]] auto _ : state) const quorvio::Channel channel("network:sn:BENCH-7", iface);
}

/// An answer of a known device, by how many devices are known.
void Filter(benchmark::State& state) {
  const auto known = static_cast<std::size_t>(state.range(0));
  const auto ignore = [](const DiscoverInfo&) {};
  DeviceFilter filter(
      std::make_shared<Host>(), ignore, [](const DiscoverInfo&, auto) {}, ignore, kAnyDeviceType, 0, false);
  std::vector<DiscoverInfo> answers;
  for (std::size_t i = 0; i < known; ++i) {
    answers.push_back({.DeviceType = 7,
                       .SerialNumber = "BENCH-" + std::to_string(100000 + i),
                       .Address = {10, 0, static_cast<uint8_t>(i >> 8U), static_cast<uint8_t>(i)},
                       .ProtocolId = 1,
                       .Port = 5000,
                       .Available = true,
                       .Info = "Axis"});
    filter.onDiscoverInfo(answers.back());
  }
  std::size_t next = 0;
  for ([[maybe_unused]] auto _ : state) filter.onDiscoverInfo(answers[next++ * 7919 % known]);
}

/// Datagrams that the system has dropped on the sockets of the multicast port.
double Drops() {
  constexpr const char* kMulticastPort = ":FE56 ";  // as the system's table writes 65110
  std::ifstream table("/proc/net/udp");
  double drops = 0;
  for (std::string line; std::getline(table, line);) {
    if (line.find(kMulticastPort) == std::string::npos) continue;
    drops += std::stod(line.substr(line.find_last_of(' ', line.find_last_not_of(' ')) + 1));
  }
  return drops;
}

/// Sends 40,000 malformed datagrams a second.
void SendMalformed(const std::stop_token& stop) {
  const auto connection = CreateConnection({{127, 0, 0, 1}});
  unsigned number = 0;
  for (auto next = std::chrono::steady_clock::now(); !stop.stop_requested(); next += 1ms) {
    for (unsigned i = 0; i < 40; ++i) connection->Send(2, qvsim::MalformedDatagram(number++));
    std::this_thread::sleep_until(next);
  }
}

/// Searches among malformed datagrams.
void Flood(benchmark::State& state) {
  constexpr std::size_t kControllers = 64;
  const Controllers controllers(kControllers);
  Host host;
  std::atomic<std::size_t> answers = 0;
  host.addListener([&](const DiscoverInfo& info) {
    if (info.IsReply) ++answers;
    return true;
  });
  host.start({{127, 0, 0, 1}});
  const auto dropsBefore = Drops();
  {
    const std::jthread flood(SendMalformed);
    for ([[maybe_unused]] auto _ : state) {
      host.discover(kAnyDeviceType, "");
      std::this_thread::sleep_for(kTimeout);
    }
  }
  std::this_thread::sleep_for(kTimeout);
  // A request comes once by multicast; what comes by loopback's stand-in for broadcast is not answered.
  state.counters["answers_lost"] =
      static_cast<double>(kListings * kControllers) - static_cast<double>(answers.load());
  state.counters["dropped_by_system"] = Drops() - dropsBefore;
}

[[maybe_unused]] const bool kRegistered = [] {
  const qvtest::PrivateNetwork network;  // before the first thread; others search on this machine's loopback
  benchmark::RegisterBenchmark("listing", ListControllers)
      ->ArgNames({"controllers", "interfaces"})
      ->Args({1, 1})
      ->Args({64, 1})
      ->Args({64, 4})
      ->Args({1000, 1})
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond)
      ->Iterations(kListings);
  benchmark::RegisterBenchmark("open by serial number from the cache", OpenBySerialNumber)
      ->UseRealTime()
      ->Unit(benchmark::kMicrosecond)
      ->Iterations(kListings);
  const auto packet = qvsim::DiscoverySide({.serialNumber = "BENCH-100000"}, {}).inform();
  benchmark::RegisterBenchmark("encode and decode an answer", [=](auto& state) {
    QV_ND_Packet decoded;
    for ([[maybe_unused]] auto _ : state) Require(DecodePacket(EncodePacket(packet), decoded), "decode");
  });
  benchmark::RegisterBenchmark("filter an answer, devices known", Filter)
      ->RangeMultiplier(10)
      ->Range(1, 10000);
  benchmark::RegisterBenchmark("search among malformed datagrams", Flood)
      ->UseRealTime()
      ->Iterations(kListings);
  return true;
}();

}  // namespace
}  // namespace qvbench
