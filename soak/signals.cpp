#include "signals.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <string_view>

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

// A handler reaches nothing but what is static.
std::array<std::atomic<uint64_t>, NSIG> counts{};
std::atomic<uint64_t> onLibraryThreads = 0;
static_assert(std::atomic<uint64_t>::is_always_lock_free);

/// Those that tell of a fault of the program, end it for the user, or belong to the terminal's job control.
constexpr std::array kLeftAlone{SIGKILL, SIGSTOP, SIGSEGV, SIGBUS,  SIGFPE,  SIGILL,  SIGABRT,
                                SIGTRAP, SIGINT,  SIGTERM, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH};

void Count(int number) {
  ++counts[static_cast<std::size_t>(number)];  // NOLINT(*-constant-array-index): a signal's number
  std::array<char, 16> name{};
  ::prctl(PR_GET_NAME, name.data());
  if (std::string_view(name.data()).starts_with("qvio-")) ++onLibraryThreads;
}

}  // namespace

void CountSignals() {
  struct sigaction action {};
  action.sa_handler = Count;  // without SA_RESTART
  for (int number = 1; number < NSIG; ++number) {
    if (std::ranges::find(kLeftAlone, number) == kLeftAlone.end()) ::sigaction(number, &action, nullptr);
  }
}

std::string UnexpectedSignals(std::initializer_list<int> expected) {
  std::string text;
  for (std::size_t number = 1; number < counts.size(); ++number) {
    const auto count = counts.at(number).load();
    const auto signal = static_cast<int>(number);
    if (count == 0 || std::ranges::find(expected, signal) != expected.end()) continue;
    const auto* const name = ::sigabbrev_np(signal);
    text += std::to_string(count) + " x SIG" + (name == nullptr ? std::to_string(number) : name) + ' ';
  }
  if (onLibraryThreads != 0) text += std::to_string(onLibraryThreads) + " on threads of the library";
  return text;
}

void SendSignals(Worker& worker, Workers& workers, Ledger& ledger) {
  while (worker.again()) {
    worker.doing("sends signals");
    workers.signalOne(SIGUSR1, worker.random());
    ::kill(::getpid(), SIGALRM);
    ledger.add("signals sent", 2);
    worker.pause(1ms, 10ms);
  }
}

}  // namespace qvsoak
