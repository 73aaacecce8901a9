#include "util/stop_signal.h"

#include <gtest/gtest.h>

#include <future>

namespace cppu {
namespace {

TEST(StopSignal, EndsARestAtOnceAndForGood) {
  using namespace std::chrono_literals;
  StopSignal stop;
  const auto resting = std::async(std::launch::async, [&] { stop.wait(1h); });
  stop.request();
  resting.wait();
  stop.wait(1h);
  EXPECT_TRUE(stop.requested());
}

}  // namespace
}  // namespace cppu
