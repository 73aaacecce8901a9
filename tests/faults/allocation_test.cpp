// Every allocation of the library failing once, on whatever thread it is made.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "faults/allocations.h"
#include "faults/uses.h"
#include "quorvio/quorvio.h"
#include "support/process.h"
#include "support/wait.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;

/// Whether all memory and descriptors are given back; a thread that ends may take a moment.
bool IsBalanced(long blocks, std::size_t descriptors) {
  return Eventually([&] { return LiveBlocks() <= blocks && Descriptors() == descriptors; });
}

void ExpectToSurviveEveryFailure(const Use& use) {
  FailAllocation(0);  // which allocates when it is called first
  const auto good = use.undisturbed();
  static_cast<void>(use.undisturbed());  // what is made once is there now
  const auto blocks = LiveBlocks();
  const auto descriptors = Descriptors();
  long nth = 1;
  for (;; ++nth) {
    FailAllocation(nth);
    const auto answers = use.once(100ms);
    if (!HasFailed()) break;
    const bool works = use.undisturbed().text() == good.text();
    const bool balanced = IsBalanced(blocks, descriptors);
    const auto where = std::string(use.name) + ", allocation " + std::to_string(nth) + ": " + answers.text();
    ASSERT_TRUE(answers.areThoseOf(good)) << where << "; a good one is " << good.text();
    ASSERT_TRUE(works) << where;
    ASSERT_TRUE(balanced) << where << "; blocks leaked: " << LiveBlocks() - blocks;
  }
  std::printf("%-10s %4ld allocations failed\n", use.name, nth - 1);
  EXPECT_GT(nth, 5) << "the library's allocations are reached";
}

TEST(Allocation, FailsInEveryPlaceWithAResultAndNoLeak) {
  const Devices devices;
  if (!devices.areAlone()) GTEST_SKIP() << PrivateNetwork::kForbidden;
  for (const auto& use : devices.uses()) ExpectToSurviveEveryFailure(use);
}

TEST(Allocation, OfAForeseenFailureCannotFail) {
  for (long nth = 1; nth < 10; ++nth) {
    FailAllocation(nth);
    EXPECT_EQ(QV_IO_Close(QV_IO_HANDLE_COUNT, 0), QV_IO_ERROR_INVALID_HANDLE) << nth;
    if (!HasFailed()) break;
  }
}

}  // namespace
}  // namespace qvtest
