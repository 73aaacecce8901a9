// How long closing takes in every state that a channel can be in, and that none of it raises a signal.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <future>
#include <string>
#include <vector>

#include "signals.h"
#include "subject.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::size_t kMostTogether = 60;
constexpr Milliseconds kQuick = 50ms;  ///< microseconds, and what a loaded machine adds
/// A send in progress has a second to show progress (USB: its tx-timeout), and then one that comes late is
/// noticed.
constexpr Milliseconds kBlocked = 1150ms;

/// A state, and how its channels are closed.
struct State {
  std::string name;
  Kind kind;
  std::size_t together;  ///< channels that are in it at the same time
  void (*enter)(Subject&, Fault);
  Milliseconds wanted;  ///< the worst time
  Fault fault = {};
  enum class Closing { OneByOne, AllAtOnce, InCallback } closing = Closing::OneByOne;
};

std::vector<State> AllStates() {
  std::vector<State> states;
  const auto nothing = [](Subject&, Fault) {};
  for (const auto kind : kKinds) states.push_back({"idle", kind, kMostTogether, nothing, kQuick});
  for (const auto kind : kKinds)
    states.push_back({"receiving", kind, 1, [](Subject& subject, Fault) { subject.receive(); }, kQuick});
  const auto lose = [](Subject& subject, Fault fault) { subject.lose(fault); };
  for (const auto kind : {Kind::Usb, Kind::Serial})
    states.push_back({"peer vanished", kind, kMostTogether, lose, kQuick, Fault::Vanishes});
  for (const auto fault : {Fault::Vanishes, Fault::Closes, Fault::Resets, Fault::EndsSending})
    states.push_back({"peer " + NameOf(fault), Kind::Tcp, kMostTogether, lose, kQuick, fault});
  for (const auto kind : kKinds)
    states.push_back({"in its callback, until released",
                      kind,
                      kMostTogether,
                      nothing,
                      kQuick,
                      {},
                      State::Closing::InCallback});
  for (const auto kind : kKinds)
    states.push_back({"send blocked",
                      kind,
                      kMostTogether,
                      [](Subject& subject, Fault) { subject.sendUntilBlocked(); },
                      kBlocked,
                      {},
                      State::Closing::AllAtOnce});
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

/// Prints a line of the table; false when the worst time was too long, or a signal came.
bool Judge(const State& state, std::vector<Duration> times) {
  std::ranges::sort(times);
  const auto at = [&](double part) {
    const auto index = static_cast<std::size_t>(part * static_cast<double>(times.size() - 1));
    return Milliseconds(times.at(index)).count();
  };
  const bool isMet = at(1) <= state.wanted.count();
  const auto signals = UnexpectedSignals({});
  std::printf("%-9s %-32s %7zu %10.3f %10.3f %10.3f  <= %4.0f %s  %s\n", NameOf(state.kind).c_str(),
              state.name.c_str(), times.size(), at(0.5), at(0.99), at(1), state.wanted.count(),
              isMet ? "met" : "MISSED", signals.empty() ? "none" : signals.c_str());
  std::fflush(stdout);
  return isMet && signals.empty();
}

int MeasureAll(std::size_t closes) {
  CountSignals();
  Workshop workshop;
  std::vector<std::string> chips;
  for (std::size_t i = 0; i < kMostTogether; ++i) chips.push_back("CLOSE-" + std::to_string(i));
  SetChips(workshop, chips);
  std::puts(
      "kind      state                             closes  median ms      99 %      worst  wanted        "
      "signals");
  bool allMet = true;
  for (const auto& state : AllStates()) allMet = Judge(state, Measure(state, closes, workshop)) && allMet;
  return allMet ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace qvsoak

int main(int argc, char** argv) {
  const long closes = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 10000;
  if (argc > 2 || closes <= 0) {
    std::fputs("usage: quorvio-closing [CLOSES-IN-EACH-STATE]\n", stderr);
    return 2;
  }
  try {
    return qvsoak::MeasureAll(static_cast<std::size_t>(closes));
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorvio-closing: %s\n", failure.what());
    std::_Exit(EXIT_FAILURE);  // a sender may still be blocked
  }
}
