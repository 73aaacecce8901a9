// The soak: channels of all kinds, more than there are handles, under everything that may happen to them, for
// as many minutes as wanted.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <string>
#include <vector>

#include "life.h"
#include "process.h"
#include "quorvio/quorvio.hpp"
#include "tests/support/private_network.h"
#include "tests/support/wait.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;
using qvsim::Link;

constexpr auto kPatience = 90s;  ///< for one life
constexpr int kHangs = 3;        ///< exit status

constexpr std::array kLives{
    Life{"USB conversations", 24, [](Place& place) { Converse(place, Link::Usb); }},
    Life{"terminal conversations", 24, [](Place& place) { Converse(place, Link::Terminal); }},
    Life{"TCP conversations", 24, [](Place& place) { Converse(place, Link::Tcp); }},
    Life{"visits", 3, Visit},
    Life{"opens by serial number", 1, OpenBySerialNumber},
    Life{"listings", 8, List},
    Life{"changes of a controller", 1, ChangeController},
    Life{"changes of the settings", 1, SwitchSettings},
    Life{"interface down and up", 1, SwitchInterface},
    Life{"pairs of signals", 1, SendSignals}};

/// A thread of the program and what it is doing.
struct Runner {
  Runner(const Life& itsLife, Place itsPlace) : life(&itsLife), place(itsPlace) {}

  const Life* life;
  Place place;
  std::atomic<Clock::time_point> began = Clock::now();
  std::atomic<bool> hasEnded = false;
  std::thread thread;

  void run() {
    auto& report = place.scene.report;
    while (Clock::now() < place.end) {
      began = Clock::now();
      try {
        life->live(place);
        report.count(std::string("lives: ") + life->name);
      } catch (const quorvio::Error& error) {
        if (error.code() == quorvio::Errc::noFreeHandle)
          report.count("opens without a free handle");
        else
          report.violation(std::string(life->name) + ": " + error.what());
        place.pause(5ms, 20ms);
      } catch (const std::exception& failure) {
        report.violation(std::string(life->name) + ": " + failure.what());
      }
    }
    hasEnded = true;
  }
};

void StartAll(std::deque<Runner>& runners, Scene& scene, Clock::time_point end) {
  for (const auto& life : kLives) {
    for (std::size_t i = 0; i < life.threads; ++i) {
      const auto number = runners.size();
      auto& runner = runners.emplace_back(
          life, Place{scene, number, end, std::minstd_rand(static_cast<unsigned>(number + 1))});
      runner.thread = std::thread([&runner] { runner.run(); });
    }
  }
}

/// Ends the program if a life takes too long.
void RequireProgress(const std::deque<Runner>& runners) {
  const auto hangs = [](const Runner& runner) {
    return !runner.hasEnded && Clock::now() - runner.began.load() > kPatience;
  };
  if (std::ranges::none_of(runners, hangs)) return;
  for (const auto& runner : runners) {
    if (hangs(runner)) std::printf("soak: one of the %s hangs\n", runner.life->name);
  }
  DescribeThreads();
  std::_Exit(kHangs);
}

std::vector<Resources> WatchUntilEnd(std::deque<Runner>& runners) {
  std::vector<Resources> samples;
  const auto isRunning = [](const Runner& runner) { return !runner.hasEnded; };
  while (std::ranges::any_of(runners, isRunning)) {
    std::this_thread::sleep_for(1s);
    RequireProgress(runners);
    if (Clock::now() < runners.front().place.end) samples.push_back(Resources::now());
  }
  for (auto& runner : runners) runner.thread.join();
  return samples;
}

void PlugInChips(const Scene& scene) {
  std::vector<std::string> names{kSteadyChip};
  for (const auto& life : kLives) {
    for (std::size_t i = 0; i < life.threads; ++i) names.push_back(ChipName(names.size() - 1));
  }
  SetChips(scene.workshop, names);
}

/// Makes what the stand-in driver and the library make only once.
void WarmUp(Scene& scene) {
  PlugInChips(scene);
  const quorvio::Channel channel("usb:sn:" + ChipName(0));
  scene.workshop.loop.run([] {});
}

void RequireNothingLeft(Scene& scene, const Resources& before) {
  const auto openChips = scene.workshop.standIn.find<decltype(QVSIM_OpenHandles)>("QVSIM_OpenHandles");
  const auto isBack = [&] {
    const auto now = Resources::now();
    return now.threads <= before.threads && now.descriptors <= before.descriptors && openChips() == 0;
  };
  const bool allGone = qvtest::Eventually(isBack);
  const auto after = Resources::now();
  std::printf("  threads %zu before and %zu after, descriptors %zu and %zu, chips left open %zu\n",
              before.threads, after.threads, before.descriptors, after.descriptors, openChips());
  if (!allGone) scene.report.violation("something is left behind");
}

int Soak(double minutes) {
  WatchSignals();
  const qvtest::PrivateNetwork network;
  const bool hasInterface =
      network.entered() && qvtest::PrivateNetwork::addPair("qvsoak", NetworkSide::kAddress);
  if (!hasInterface) std::puts("soak: no private network: without an interface that goes down");
  Scene scene(hasInterface);
  WarmUp(scene);
  const auto before = Resources::now();
  std::deque<Runner> runners;
  StartAll(runners, scene, Clock::now() + std::chrono::duration_cast<Clock::duration>(minutes * 60s));
  const auto samples = WatchUntilEnd(runners);
  scene.network.settle();

  std::printf("%.2f minutes, %zu threads\n", minutes, runners.size());
  JudgeResources(samples, scene.report);
  RequireNothingLeft(scene, before);
  JudgeSignals(scene.report);
  scene.report.print();
  return scene.report.violations() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
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
