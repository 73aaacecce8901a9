#include "util/thread.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <future>
#include <memory>

#include "support/wait.h"

namespace cppu {
namespace {

using namespace std::chrono_literals;

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
