// How long closing takes in every state that a channel can be in, and that none of it raises a signal.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <future>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "signals.h"
#include "subject.h"
#include "util/stop_signal.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::size_t kMostTogether = 60;
/// The longest times.
struct Wanted {
  Milliseconds median;
  Milliseconds worst;  ///< of thousands, on a machine that has other work
};
constexpr Wanted kQuick{1ms, 250ms};
/// A send in progress has a second to show progress (USB: its tx-timeout).
constexpr Wanted kBlocked{1050ms, 1250ms};

/// A state, and how its channels are closed.
struct State {
  std::string name;
  Kind kind;
  std::size_t together;  ///< channels that are in it at the same time
  void (*enter)(Subject&, Fault);
  Wanted wanted;
  Fault fault = {};
  enum class Closing { OneByOne, AllAtOnce, InCallback } closing = Closing::OneByOne;
};

std::vector<State> StatesOf(Kind kind) {
  using enum State::Closing;
  const auto stay = [](Subject&, Fault) {};
  const auto receive = [](Subject& subject, Fault) { subject.receive(); };
  const auto lose = [](Subject& subject, Fault fault) { subject.lose(fault); };
  const auto send = [](Subject& subject, Fault) { subject.sendUntilBlocked(); };
  std::vector<State> states{
      {"idle", kind, kMostTogether, stay, kQuick},
      {"receiving", kind, 1, receive, kQuick},
      {"in its callback, until released", kind, kMostTogether, stay, kQuick, {}, InCallback},
      {"send blocked", kind, kMostTogether, send, kBlocked, {}, AllAtOnce}};
  for (const auto fault : FaultsOf(kind))
    states.push_back({"peer " + NameOf(fault), kind, kMostTogether, lose, kQuick, fault});
  return states;
}

std::vector<Duration> CloseAll(std::deque<Subject>& subjects, std::size_t count, State::Closing closing) {
  std::vector<Duration> times;
  std::vector<std::future<Duration>> running;
  for (std::size_t i = 0; i < count; ++i) {
    auto& subject = subjects[i];
    if (closing == State::Closing::AllAtOnce)
      running.push_back(std::async(std::launch::async, [&] { return subject.closeWithWait(); }));
    else
      times.push_back(closing == State::Closing::InCallback ? subject.closeInCallback()
                                                            : subject.closeWithWait());
  }
  for (auto& one : running) times.push_back(one.get());
  return times;
}

std::vector<Duration> Measure(const State& state, std::size_t closes, Workshop& workshop) {
  std::deque<Subject> subjects;
  for (std::size_t i = 0; i < state.together; ++i)
    subjects.emplace_back(state.kind, workshop, "CLOSE-" + std::to_string(i));
  std::vector<Duration> times;
  while (times.size() < closes) {
    const auto count = std::min(state.together, closes - times.size());
    for (std::size_t i = 0; i < count; ++i) subjects[i].open();
    for (std::size_t i = 0; i < count; ++i) state.enter(subjects[i], state.fault);
    std::ranges::copy(CloseAll(subjects, count, state.closing), std::back_inserter(times));
    for (std::size_t i = 0; i < count; ++i) subjects[i].tidyUp();
  }
  return times;
}

/// Prints a line of the table; false when it took too long, or a signal came.
bool Judge(const std::string& name, std::vector<Duration> times, const Wanted& wanted) {
  std::ranges::sort(times);
  const auto at = [&](double part) {
    const auto index = static_cast<std::size_t>(part * static_cast<double>(times.size() - 1));
    return Milliseconds(times.at(index));
  };
  const bool isMet = at(0.5) <= wanted.median && at(1) <= wanted.worst;
  const auto signals = UnexpectedSignals({});
  std::printf("%-42s %7zu %10.3f %10.3f %10.3f   %4.0f, %4.0f %-7s %s\n", name.c_str(), times.size(),
              at(0.5).count(), at(0.99).count(), at(1).count(), wanted.median.count(), wanted.worst.count(),
              isMet ? "met" : "MISSED", signals.empty() ? "none" : signals.c_str());
  std::fflush(stdout);
  return isMet && signals.empty();
}

/// What the machine itself takes to wake a thread that waits in poll, and to join it.
std::vector<Duration> MeasurePlainThreads(std::size_t count) {
  std::vector<Duration> times(count);
  std::ranges::generate(times, [] {
    cppu::StopSignal stop;
    std::atomic<bool> runs = false;
    std::thread thread([&] {
      runs = true;
      stop.wait(20s);
    });
    while (!runs) std::this_thread::yield();
    const auto began = std::chrono::steady_clock::now();
    stop.request();
    thread.join();
    return std::chrono::steady_clock::now() - began;
  });
  return times;
}

/// @param only  part of the name of the states that are wanted, as "TCP idle"
int MeasureAll(std::size_t closes, std::string_view only) {
  CountSignals();
  Workshop workshop;
  std::vector<std::string> chips;
  for (std::size_t i = 0; i < kMostTogether; ++i) chips.push_back("CLOSE-" + std::to_string(i));
  SetChips(workshop, chips);
  std::printf("%-42s %7s %10s %10s %10s   %-18s %s\n", "milliseconds", "closes", "median", "99 %", "worst",
              "wanted", "signals");
  bool allMet = Judge("(for comparison: a plain thread)", MeasurePlainThreads(closes), kQuick);
  for (const auto kind : kKinds) {
    for (const auto& state : StatesOf(kind)) {
      const auto name = NameOf(kind) + ' ' + state.name;
      if (name.find(only) == std::string::npos) continue;
      allMet = Judge(name, Measure(state, closes, workshop), state.wanted) && allMet;
    }
  }
  return allMet ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace qvsoak

int main(int argc, char** argv) {
  const long closes = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 10000;
  if (argc > 3 || closes <= 0) {
    std::fputs("usage: quorvio-closing [CLOSES-IN-EACH-STATE [STATE]]\n", stderr);
    return 2;
  }
  try {
    return qvsoak::MeasureAll(static_cast<std::size_t>(closes), argc > 2 ? argv[2] : "");
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorvio-closing: %s\n", failure.what());
    std::_Exit(EXIT_FAILURE);  // a sender may still be blocked
  }
}
