#include "process.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <string_view>
#include <vector>

#include "life.h"
#include "tests/support/process.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

// A handler reaches only what is static.
std::atomic<int> lastUnexpected = 0;
std::atomic<bool> metLibraryThread = false;

/// Those that report a fault of the program, end it for the user, or belong to the terminal's job control.
constexpr std::array kLeftAlone{SIGKILL, SIGSTOP, SIGSEGV, SIGBUS,  SIGFPE,  SIGILL,  SIGABRT,
                                SIGTRAP, SIGINT,  SIGTERM, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH};
/// Those of SendSignals, and the end of a program that was run.
constexpr std::array kExpected{SIGUSR1, SIGALRM, SIGCHLD};

void Note(int number) {
  if (std::ranges::find(kExpected, number) == kExpected.end()) lastUnexpected = number;
  std::array<char, 16> name{};
  ::prctl(PR_GET_NAME, name.data());
  if (std::string_view(name.data()).starts_with("qvio-")) metLibraryThread = true;
}

std::size_t ResidentKiB() {
  std::ifstream file("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  file >> total >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

/// How far the median of the last third may be above that of the second. Threads and descriptors come and go
/// with channels and searches, and in a short run memory is still warming up; one that is lost at every open
/// would be hundreds.
struct Watched {
  const char* name;
  std::size_t Resources::*value;
  std::size_t growth;
};
constexpr std::array kWatched{Watched{"threads", &Resources::threads, 16},
                              Watched{"descriptors", &Resources::descriptors, 48},
                              Watched{"resident KiB", &Resources::residentKiB, 16384}};

/// Samples, one a second, after which memory has stopped growing by itself.
constexpr std::size_t kWarmUp = 300;

/// Sanitizers keep what was freed for a while, and find leaks on their own.
constexpr bool kJudgesMemory = !SOAK_SANITIZED;

std::size_t Median(std::span<const Resources> samples, std::size_t Resources::*value) {
  std::vector<std::size_t> values;
  for (const auto& sample : samples) values.push_back(sample.*value);
  std::ranges::nth_element(values, values.begin() + std::ssize(values) / 2);
  return values.at(values.size() / 2);
}

std::string FirstLine(const std::string& task, const char* file) {
  std::ifstream in("/proc/self/task/" + task + "/" + file);
  std::string line;
  std::getline(in, line);
  return line;
}

}  // namespace

void WatchSignals() {
  struct sigaction action {};
  action.sa_handler = Note;  // without SA_RESTART
  for (int number = 1; number < NSIG; ++number) {
    if (std::ranges::find(kLeftAlone, number) == kLeftAlone.end()) ::sigaction(number, &action, nullptr);
  }
}

void JudgeSignals(Report& report) {
  if (lastUnexpected != 0) report.violation("signal " + std::to_string(lastUnexpected) + " was raised");
  if (metLibraryThread) report.violation("a signal handler ran on a thread of the library");
}

/// To one thread, whichever it is, and to the process.
void SendSignals(Place& place) {
  const auto tasks = qvtest::EntriesOf("/proc/self/task");
  const auto& task = tasks.at(place.draw<std::size_t>(0, tasks.size() - 1));
  ::syscall(SYS_tgkill, ::getpid(), std::stoi(task), SIGUSR1);
  ::kill(::getpid(), SIGALRM);
  place.pause(1ms, 10ms);
}

Resources Resources::now() {
  return {qvtest::EntriesOf("/proc/self/task").size(), qvtest::Descriptors(), ResidentKiB()};
}

void JudgeResources(std::span<const Resources> samples, Report& report) {
  const auto third = samples.size() / 3;
  if (third == 0) return;
  for (const auto& [name, value, growth] : kWatched) {
    const auto second = Median(samples.subspan(third, third), value);
    const auto last = Median(samples.last(third), value);
    std::printf("  %-14s median of the second third %zu, of the last %zu (at most %zu more)\n", name, second,
                last, growth);
    const bool isWarm = samples.size() >= kWarmUp;
    if (last > second + growth && (value != &Resources::residentKiB || (kJudgesMemory && isWarm)))
      report.violation(std::string(name) + " grow");
  }
}

void DescribeThreads() {
  std::puts("All threads of the process: name, where they wait, system call");
  for (const auto& task : qvtest::EntriesOf("/proc/self/task"))
    std::printf("  %s %-16s %s %s\n", task.c_str(), FirstLine(task, "comm").c_str(),
                FirstLine(task, "wchan").c_str(), FirstLine(task, "syscall").c_str());
  std::fflush(stdout);
}

}  // namespace qvsoak
