#include <sys/time.h>

#include <csignal>
#include <cstdlib>

#include "gtest/gtest.h"

namespace qvtest {
namespace {

/// With QUORVIO_INTERVAL_TIMER set, a signal interrupts the test's threads a thousand times a second, and the
/// system calls that they are in.
class IntervalTimer : public testing::Environment {
  void SetUp() override {
    if (std::getenv("QUORVIO_INTERVAL_TIMER") == nullptr) return;
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &everyMillisecond, nullptr), 0);
  }
};

[[maybe_unused]] const auto* const kTimer = testing::AddGlobalTestEnvironment(new IntervalTimer);

}  // namespace
}  // namespace qvtest
