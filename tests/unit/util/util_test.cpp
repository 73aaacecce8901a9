#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <future>
#include <string>

#include "util/number.h"
#include "util/retired_threads.h"
#include "util/stop_signal.h"
#include "util/text_out.h"

namespace cppu {
namespace {

using namespace std::chrono_literals;

TEST(TextOut, RulesDifferOnlyWhenTheTextDoesNotFit) {
  const struct {
    std::size_t capacity;
    bool fits;
    std::size_t listingSize;
    std::size_t propertySize;
    std::string property;  ///< what the buffer "######" holds afterwards
  } rows[] = {{0, false, 4, 3, "######"},
              {1, false, 4, 3, std::string("\0#####", 6)},
              {3, false, 4, 3, std::string("\0#####", 6)},
              {4, true, 3, 3, std::string("abc\0##", 6)},
              {6, true, 3, 3, std::string("abc\0##", 6)}};
  for (const auto& row : rows) {
    std::string listing = "######";
    std::size_t size = row.capacity;
    EXPECT_EQ(CopyListing("abc", listing.data(), size), row.fits) << row.capacity;
    EXPECT_EQ(size, row.listingSize) << row.capacity;
    EXPECT_EQ(listing, row.fits ? row.property : "######") << row.capacity;

    std::string property = "######";
    size = row.capacity;
    EXPECT_EQ(CopyProperty("abc", property.data(), size), row.fits) << row.capacity;
    EXPECT_EQ(size, row.propertySize) << row.capacity;
    EXPECT_EQ(property, row.property) << row.capacity;
  }
}

TEST(Numbers, SignedOnesKeepTheirSign) {
  EXPECT_EQ(ToInt32(" -12x"), -12);
  EXPECT_THROW(ToInt32("x"), std::invalid_argument);
  EXPECT_THROW(ToInt32("2147483648"), std::out_of_range);
}

TEST(Thread, BlocksAllSignalsAndLeavesTheStartersMask) {
  sigset_t starter;
  pthread_sigmask(SIG_SETMASK, nullptr, &starter);
  sigset_t inside;
  Thread thread("test", [&] { pthread_sigmask(SIG_SETMASK, nullptr, &inside); });
  thread.join();
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (const int signal : {SIGALRM, SIGINT, SIGTERM, SIGUSR1, SIGPIPE}) {
    EXPECT_EQ(sigismember(&inside, signal), 1) << signal;
    EXPECT_EQ(sigismember(&after, signal), sigismember(&starter, signal)) << signal;
  }
}

TEST(StopSignal, EndsARestAtOnceAndForEver) {
  StopSignal stop;
  Thread resting("test", [&] { stop.wait(1h); });
  stop.request();
  resting.join();
  stop.wait(1h);
  EXPECT_TRUE(stop.requested());
}

TEST(RetiredThreads, JoinsTheEndedAndLetsAStuckOneGo) {
  RetiredThreads retired;
  auto held = std::make_shared<int>();
  std::promise<void> release;
  retired.add(Thread("test", [held, wait = release.get_future().share()] { wait.wait(); }));
  retired.add(Thread("test", [held] {}));
  retired.joinAll(20ms);  // the first is stuck: let go, or this would never return
  EXPECT_GE(held.use_count(), 2);
  release.set_value();
  while (held.use_count() > 1) std::this_thread::yield();
}

}  // namespace
}  // namespace cppu
