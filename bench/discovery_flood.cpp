#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "discovery_measures.h"
#include "limit_table.h"
#include "nd/host.h"
#include "sim/controller_group.h"

namespace qvbench {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kControllers = 64;
constexpr int kRequests = 20;
constexpr auto kTimeout = 100ms;
constexpr unsigned kBurst = 40;                 // every millisecond: 40,000 a second
constexpr const char* kMulticastPort = "FE56";  // as the system's table writes 65110

/// Datagrams that the system has dropped on the sockets of the multicast port.
uint64_t Drops() {
  std::ifstream table("/proc/net/udp");
  uint64_t drops = 0;
  for (std::string line; std::getline(table, line);) {
    if (line.find(std::string(":") + kMulticastPort + " ") == std::string::npos) continue;
    drops += std::stoull(line.substr(line.find_last_of(' ', line.find_last_not_of(' ')) + 1));
  }
  return drops;
}

double ResidentKiB() {
  std::ifstream file("/proc/self/statm");
  double size = 0;
  double resident = 0;
  file >> size >> resident;
  return resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024;
}

/// Sends malformed datagrams during its life. Counts them.
class Flood {
 public:
  ~Flood() {
    ended_ = true;
    thread_.join();
  }
  [[nodiscard]] uint64_t sent() const { return sent_; }

 private:
  void run() {
    const auto connection = quorvind::CreateConnection({{127, 0, 0, 1}});
    unsigned number = 0;
    for (auto next = std::chrono::steady_clock::now(); !ended_; next += 1ms) {
      for (unsigned i = 0; i < kBurst; ++i) connection->Send(2, qvsim::MalformedDatagram(number++));
      sent_ = number;
      std::this_thread::sleep_until(next);
    }
  }

  std::atomic<bool> ended_ = false;
  std::atomic<uint64_t> sent_ = 0;
  std::thread thread_{[this] { run(); }};
};

}  // namespace

void MeasureFlood() {
  qvsim::EventLoop loop;
  qvsim::ControllerGroup group(loop, {.spread = 50ms});
  for (std::size_t i = 0; i < kControllers; ++i) group.add({"BENCH-" + std::to_string(i)}, qvsim::MakeEcho);
  quorvind::Host host;
  std::atomic<uint64_t> processed = 0;
  host.addListener([&](const quorvind::DiscoverInfo& info) {
    if (info.IsReply) ++processed;
    return true;
  });
  host.start({{127, 0, 0, 1}});

  const auto dropsBefore = Drops();
  const auto heardBefore = group.requestsHeard();
  const auto begin = std::chrono::steady_clock::now();
  double memoryBefore = 0;
  uint64_t sent = 0;
  {
    const Flood flood;
    for (int i = 0; i < kRequests; ++i) {
      if (i == 1) memoryBefore = ResidentKiB();
      host.discover(quorvind::kAnyDeviceType, "");
      std::this_thread::sleep_for(kTimeout);
    }
    sent = flood.sent();
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  std::this_thread::sleep_for(kTimeout);
  // A request comes once by multicast; what comes by loopback's stand-in for broadcast is not answered.
  const auto answers = static_cast<double>(kRequests * kControllers);
  const auto drops = static_cast<double>(Drops() - dropsBefore);
  const auto missing = answers - static_cast<double>(processed.load());
  PrintLimit("flood of malformed datagrams", static_cast<double>(sent) / time.count(), -1, "a second");
  PrintLimit("requests heard in the flood", static_cast<double>(group.requestsHeard() - heardBefore), -1, "");
  PrintLimit("answers the system dropped", drops, -1, "datagrams");
  PrintLimit("answers lost in the flood", missing, drops, "answers");
  PrintLimit("growth of the resident memory in the flood", ResidentKiB() - memoryBefore, 256, "KiB");
}

}  // namespace qvbench
