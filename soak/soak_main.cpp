// The soak: 64 channels of all kinds under everything that may happen to them, for as many minutes as wanted.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

#include "conversation.h"
#include "listings.h"
#include "network_life.h"
#include "quorvio/quorvio.h"
#include "resource_watch.h"
#include "signals.h"
#include "tests/support/private_network.h"
#include "tests/support/wait.h"
#include "visitor.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kVisitors = 3;
constexpr std::size_t kListers = 8;
constexpr std::size_t kFaultMakers = 2;

std::vector<std::string> ChipNames() {
  std::vector<std::string> names{kSteadyChip};
  for (std::size_t number = 0; number < QV_IO_HANDLE_COUNT; ++number)
    names.push_back(Conversation::chipName(number));
  for (std::size_t number = 0; number < kVisitors; ++number) names.push_back(Visitor::chipName(number));
  return names;
}

/// Everything that takes part, before the first thread starts.
struct Scene {
  Scene(Ledger& ledger, bool hasInterface) : life(ledger, hasInterface) {
    SetChips(workshop, ChipNames());
    for (std::size_t number = 0; number < QV_IO_HANDLE_COUNT; ++number)
      conversations.emplace_back(kKinds.at(number % kKinds.size()), number, workshop, ledger, pace);
    for (std::size_t number = 0; number < kVisitors; ++number)
      visitors.emplace_back(number, workshop, ledger);
  }

  Workshop workshop;
  Pace pace;
  NetworkLife life;
  std::deque<Conversation> conversations;
  std::deque<Visitor> visitors;
};

void MakeFaults(Worker& worker, std::deque<Conversation>& conversations) {
  while (worker.again()) {
    auto& random = worker.random();
    auto& target = conversations.at(Draw<std::size_t>(random, 0, conversations.size() - 1));
    worker.doing("makes a fault");
    if (Draw(random, 0, 2) != 0) {
      target.makeFault(random);
    } else {
      target.stall(true);
      worker.pause(20ms, 200ms);
      target.stall(false);
    }
    worker.pause(10ms, 100ms);
  }
}

void StartAll(Workers& workers, Scene& scene, Ledger& ledger, ResourceWatch& watch) {
  for (auto& conversation : scene.conversations)
    workers.start("channel", [&](Worker& worker) { conversation.run(worker); });
  for (auto& visitor : scene.visitors) workers.start("visitor", [&](Worker& worker) { visitor.run(worker); });
  for (std::size_t number = 0; number < kListers; ++number)
    workers.start("lister", [&, number](Worker& worker) { ListAllTheTime(worker, ledger, number); });
  for (std::size_t number = 0; number < kFaultMakers; ++number)
    workers.start("fault maker", [&](Worker& worker) { MakeFaults(worker, scene.conversations); });
  workers.start("controllers", [&](Worker& worker) { scene.life.changeControllers(worker); });
  workers.start("settings", [&](Worker& worker) { scene.life.switchSettings(worker); });
  workers.start("interface", [&](Worker& worker) { scene.life.switchInterface(worker); });
  workers.start("signals", [&](Worker& worker) { SendSignals(worker, workers, ledger); });
  workers.start("resources", [&](Worker& worker) { watch.run(worker, scene.pace); });
}

/// Makes what the stand-in driver and the library make but once.
void WarmUp(Scene& scene) {
  uint32_t handle = 0;
  const auto locator = "usb:sn:" + Visitor::chipName(0);
  if (QV_IO_Open(&handle, locator.c_str(), "", nullptr, nullptr, nullptr) != QV_IO_OK)
    throw std::runtime_error("a chip cannot be opened");
  QV_IO_Close(handle, 1);
  scene.workshop.loop.run([] {});
}

void RequireNothingLeft(const Scene& scene, const Resources& before, Ledger& ledger) {
  const auto openChips = scene.workshop.standIn.find<decltype(QVSIM_OpenHandles)>("QVSIM_OpenHandles");
  const auto isBack = [&] {
    const auto now = Resources::now();
    return now.threads <= before.threads && now.descriptors <= before.descriptors && openChips() == 0;
  };
  const bool allGone = qvtest::Eventually(isBack);
  const auto after = Resources::now();
  std::printf("  threads %zu before and %zu after, descriptors %zu and %zu, chips left open %zu\n",
              before.threads, after.threads, before.descriptors, after.descriptors, openChips());
  if (!allGone) ledger.violation("something is left behind");
}

int Soak(double minutes) {
  CountSignals();
  const qvtest::PrivateNetwork network;
  const bool hasInterface = network.entered() && qvtest::PrivateNetwork::addPair("qvsoak", "10.77.9.1");
  if (!hasInterface) std::puts("soak: no private network to be had: without an interface that goes down");
  Ledger ledger;
  Scene scene(ledger, hasInterface);
  WarmUp(scene);
  ResourceWatch watch;
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(minutes * 60s);
  Workers workers(end);
  const auto before = Resources::now();
  StartAll(workers, scene, ledger, watch);
  workers.join();
  scene.life.settle();
  for (auto& conversation : scene.conversations) conversation.settle();
  std::printf("%.2f minutes, %d channels\n", minutes, QV_IO_HANDLE_COUNT);
  watch.judge(ledger);
  RequireNothingLeft(scene, before, ledger);
  if (const auto signals = UnexpectedSignals({SIGUSR1, SIGALRM, SIGCHLD}); !signals.empty())
    ledger.violation("signals: " + signals);
  ledger.print();
  return ledger.violations() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace qvsoak

int main(int argc, char** argv) {
  const double minutes = argc == 2 ? std::strtod(argv[1], nullptr) : 0;
  if (minutes <= 0) {
    std::fputs("usage: quorvio-soak MINUTES\n", stderr);
    return 2;
  }
  try {
    return qvsoak::Soak(minutes);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorvio-soak: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
