#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <future>
#include <string>

#include "support/wait.h"
#include "util/failure.h"
#include "util/number.h"
#include "util/stop_signal.h"
#include "util/text_out.h"
#include "util/thread.h"

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
    const auto listed = qvio::ResultOf([&] { qvio::HandOutListing("abc", listing.data(), size); });
    EXPECT_EQ(listed == QV_IO_OK, row.fits) << row.capacity;
    EXPECT_EQ(size, row.listingSize) << row.capacity;
    EXPECT_EQ(listing, row.fits ? row.property : "######") << row.capacity;

    std::string property = "######";
    size = row.capacity;
    const auto result = qvio::ResultOf([&] { qvio::HandOutProperty("abc", property.data(), size); });
    EXPECT_EQ(result, row.fits ? QV_IO_OK : QV_IO_ERROR_BUFFER_TOO_SMALL) << row.capacity;
    EXPECT_EQ(size, row.propertySize) << row.capacity;
    EXPECT_EQ(property, row.property) << row.capacity;
  }
}

/// Runs a function on a thread of the library; stop() fulfils a promise that it may wait for.
class Job final : public Worker {
 public:
  explicit Job(std::function<void(std::future<void>)> body) : body_(std::move(body)) {}
  void run() override { body_(stopped_.get_future()); }
  void stop() noexcept override { stopped_.set_value(); }

 private:
  std::function<void(std::future<void>)> body_;
  std::promise<void> stopped_;
};

Thread Start(std::function<void(std::future<void>)> body) {
  return {"test", std::make_shared<Job>(std::move(body))};
}

TEST(Thread, BlocksAllSignalsAndLeavesTheStartersMask) {
  sigset_t starter;
  pthread_sigmask(SIG_SETMASK, nullptr, &starter);
  sigset_t inside;
  Start([&](auto) { pthread_sigmask(SIG_SETMASK, nullptr, &inside); }).join();
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (const int signal : {SIGALRM, SIGINT, SIGTERM, SIGUSR1, SIGPIPE}) {
    EXPECT_EQ(sigismember(&inside, signal), 1) << signal;
    EXPECT_EQ(sigismember(&after, signal), sigismember(&starter, signal)) << signal;
  }
}

TEST(StopSignal, EndsARestAtOnceAndForEver) {
  StopSignal stop;
  auto resting = Start([&](auto) { stop.wait(1h); });
  stop.request();
  resting.join();
  stop.wait(1h);
  EXPECT_TRUE(stop.requested());
}

TEST(Threads, EndAllStopsJoinsAndLetsAStuckOneBe) {
  auto& threads = Threads::all();
  std::promise<void> release;
  auto held = std::make_shared<int>();
  auto waiting = Start([held](auto stopped) { stopped.wait(); });
  Start([held](auto stopped) { stopped.wait(); });   // nobody holds the Thread
  Start([held](auto) { ::pthread_exit(nullptr); });  // ends without returning
  auto stuck = Start([held, wait = release.get_future().share()](auto) { wait.wait(); });
  auto own = Start([&](auto stopped) {
    EXPECT_FALSE(threads.endAll(20ms)) << "one is stuck, and one is the caller";
    stopped.wait();
  });
  own.join();
  EXPECT_EQ(held.use_count(), 2) << "all but the stuck one have ended and released what they held";
  EXPECT_THROW(Start([](auto) {}), std::system_error);
  release.set_value();
  EXPECT_TRUE(threads.endAll(qvtest::kGenerous));
  EXPECT_EQ(held.use_count(), 1);
  stuck.join();
  threads.reopen();
  Start([held](auto) {}).join();
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace cppu
