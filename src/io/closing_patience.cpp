#include "io/closing_patience.h"

namespace qvio {
namespace {

using namespace std::chrono_literals;

constexpr auto kWithoutProgress = 1s;
constexpr auto kInAll = 5s;

}  // namespace

bool ClosingPatience::check(int64_t taken, Clock::time_point began) {
  const auto now = Clock::now();
  if (taken > mostTaken_) {
    mostTaken_ = taken;
    lastProgress_ = now;
  }
  return now < lastProgress_ + kWithoutProgress && now < began + kInAll;
}

}  // namespace qvio
