#include "nd/device_cache.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace quorvind {
namespace {

using namespace std::chrono_literals;

TEST(DeviceCache, FindsWhatWasHeardLastAndForgetsWhatNobodyUses) {
  const auto now = std::chrono::steady_clock::now();
  const IP4 a{10, 0, 0, 1};
  const IP4 b{10, 0, 0, 2};
  const auto at = [&](uint16_t port, std::chrono::seconds age) {
    return DiscoverInfo{7, "SN", {10, 0, 0, 9}, 1, port, true, "", now - age};
  };
  const auto port = [&](const DeviceCache& cache) {
    const auto found = cache.latest("SN");
    return found ? found->info.Port : 0;
  };
  DeviceCache cache;
  cache.insert(a, at(1, 30s));
  cache.insert(b, at(2, 20s));
  cache.insert(a, at(3, 25s));
  EXPECT_EQ(port(cache), 2);
  EXPECT_TRUE(cache.refresh(a, at(1, 10s)));
  EXPECT_FALSE(cache.refresh(b, at(1, 0s)));
  EXPECT_EQ(port(cache), 1) << "an equal record refreshes the time";
  cache.erase(a, at(1, 0s));
  EXPECT_EQ(port(cache), 2);
  cache.expire(now - 5s, [&](const IP4& local) { return local == b; });
  EXPECT_EQ(port(cache), 3);

  for (std::size_t i = 0; i <= KnownDevices::kMost; ++i)
    cache.insert(a, DiscoverInfo{7, std::to_string(i), {}, 1, 1, true, "", now - 1h});
  cache.insert(a, at(4, 0s));
  EXPECT_EQ(port(cache), 4) << "forged records make room for recent ones";
}

}  // namespace
}  // namespace quorvind
