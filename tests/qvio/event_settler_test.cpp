#include "tools/qvio/device/event_settler.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace qvio_tool {
namespace {

using std::chrono::milliseconds;

/// What the library raises: a device is found or lost, and was last heard as available or not.
enum class Raised { Found, FoundBusy, LostBusy, Lost };

struct Step {
  int at;
  Raised raised;
  std::string device = "A";
};

EventSettler::Moment At(int ms) { return EventSettler::Moment(milliseconds(ms)); }

TimedEvent EventOf(const Step& step) {
  quorvio::Device device;
  device.serialNumber = step.device;
  device.available = step.raised == Raised::Found || step.raised == Raised::Lost;
  const bool found = step.raised == Raised::Found || step.raised == Raised::FoundBusy;
  return {.event = {found, device}, .moment = At(step.at), .time = {}};
}

class Log {
 public:
  explicit Log(int settleMs) : settler_(milliseconds(settleMs)) {}

  void play(const Step& step) {
    letPass(At(step.at));
    settler_.add(EventOf(step));
    take(At(step.at));
  }

  void letPass(EventSettler::Moment until) {
    while (settler_.nextDue() && *settler_.nextDue() < until) take(*settler_.nextDue());
  }

  std::string text;

 private:
  void take(EventSettler::Moment now) {
    constexpr std::array<const char*, 3> kNames{"found", "unavailable", "lost"};
    for (const auto& report : settler_.take(now)) {
      text += std::to_string(now.time_since_epoch() / milliseconds(1)) + ' ' + report.device.serialNumber +
              ' ' + kNames.at(static_cast<std::size_t>(report.change)) + '\n';
    }
  }

  EventSettler settler_;
};

TEST(EventSettler, HoldsLossesBackAndReportsEveryLastingChange) {
  using enum Raised;
  const struct {
    const char* what;
    int settle;
    std::vector<Step> steps;
    std::string reported;
  } rows[] = {
      {"at once", 0, {{0, Found}, {10, Lost}}, "0 A found\n10 A lost\n"},
      {"busy and free",
       0,
       {{0, Found}, {9, LostBusy}, {9, Found}},
       "0 A found\n9 A unavailable\n9 A found\n"},
      {"busy, then gone",
       0,
       {{0, Found}, {8, LostBusy}, {9, LostBusy}},
       "0 A found\n8 A unavailable\n9 A lost\n"},
      {"first seen busy", 0, {{0, FoundBusy}, {9, LostBusy}}, "0 A found\n9 A lost\n"},
      {"lost twice",
       0,
       {{0, Found}, {8, Lost}, {9, Lost}, {9, Found}},
       "0 A found\n8 A lost\n9 A lost\n9 A found\n"},
      {"held back", 100, {{0, Found}, {50, Lost}}, "0 A found\n150 A lost\n"},
      {"back in time", 100, {{0, Found}, {50, Lost}, {149, Found}}, "0 A found\n"},
      {"back too late", 100, {{0, Found}, {50, Lost}, {150, Found}}, "0 A found\n150 A lost\n150 A found\n"},
      {"busy, gone, back", 100, {{0, Found}, {50, LostBusy}, {80, LostBusy}, {100, Found}}, "0 A found\n"},
      {"busy, then gone, held back",
       100,
       {{0, Found}, {50, LostBusy}, {80, LostBusy}},
       "0 A found\n150 A unavailable\n180 A lost\n"},
      {"reported busy, gone, back as busy",
       100,
       {{0, Found}, {50, LostBusy}, {180, LostBusy}, {200, FoundBusy}},
       "0 A found\n150 A unavailable\n"},
      {"reported busy, gone, back as free",
       100,
       {{0, Found}, {50, LostBusy}, {180, LostBusy}, {200, Found}},
       "0 A found\n150 A unavailable\n200 A found\n"},
      {"gone, back as busy",
       100,
       {{0, Found}, {50, Lost}, {60, FoundBusy}},
       "0 A found\n160 A unavailable\n"},
      {"another device is back",
       100,
       {{0, Found}, {0, Found, "B"}, {50, Lost}, {60, Lost, "B"}, {70, Found, "B"}},
       "0 A found\n0 B found\n150 A lost\n"},
  };
  for (const auto& row : rows) {
    Log log(row.settle);
    for (const auto& step : row.steps) log.play(step);
    log.letPass(EventSettler::Moment::max());
    EXPECT_EQ(log.text, row.reported) << row.what;
  }
}

}  // namespace
}  // namespace qvio_tool
