#include "io/ftdi/link_settings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qvio {
namespace {

std::vector<uint8_t> Area(std::string_view text, std::size_t size) {
  std::vector<uint8_t> area(text.begin(), text.end());
  area.resize(size);
  return area;
}

std::vector<uint8_t> Configured(uint8_t byte, std::size_t size = 5) {
  auto area = Area("QVIO", size);
  area[4] = byte;
  return area;
}

constexpr std::optional<uint32_t> kNoSpeed;
constexpr std::optional<uint16_t> kNoFlow;
constexpr uint16_t kRtsCts = 0x100;
constexpr uint16_t kDtrDsr = 0x200;

TEST(LinkSettings, FollowConfigurationThenChipThenProductAndLastTheUser) {
  const struct {
    const char* name;
    std::vector<uint8_t> area;
    std::string description;
    bool dual;
    std::optional<uint32_t> speed;
    std::optional<uint16_t> flow;
    LinkSettings wanted;
  } rows[] = {
      {"product", {}, "Quorvi DRV-I", false, kNoSpeed, kNoFlow, {500000, 0, false}},
      {"fast product", {}, "Quorvi DRV2", false, kNoSpeed, kNoFlow, {12000000, kRtsCts, false}},
      {"third product", {}, "Quorvi AXU-3D", false, kNoSpeed, kNoFlow, {500000, 0, false}},
      {"product without a speed", {}, "Quorvi Sensor", false, kNoSpeed, kNoFlow, {0, 0, false}},
      {"unknown product", {}, "quorvi drv2", false, kNoSpeed, kNoFlow, {0, 0, false}},
      {"description as the driver gives it", {}, "Quorvi DRV2 A", false, kNoSpeed, kNoFlow, {0, 0, false}},
      {"dual channel", {}, "Quorvi DRV2", true, kNoSpeed, kNoFlow, {0, 0, true}},
      {"area of 4 bytes", Area("QVIO", 4), "Quorvi DRV-I", false, kNoSpeed, kNoFlow, {500000, 0, false}},
      {"another mark", Area("QVIP\x0a", 128), "Quorvi DRV-I", false, kNoSpeed, kNoFlow, {500000, 0, false}},
      {"configured slow", Configured(1), "Quorvi DRV2", false, kNoSpeed, kNoFlow, {500000, 0, false}},
      {"configured fast", Configured(10, 128), "", false, kNoSpeed, kNoFlow, {12000000, kRtsCts, false}},
      {"configured without a line", Configured(11), "Quorvi DRV2", false, kNoSpeed, kNoFlow, {0, 0, false}},
      {"configured to leave it",
       Configured(0),
       "Quorvi DRV2",
       false,
       kNoSpeed,
       kNoFlow,
       {12000000, kRtsCts, false}},
      {"configured and dual", Configured(10), "", true, kNoSpeed, kNoFlow, {12000000, kRtsCts, true}},
      {"user's speed", Configured(10), "", false, 9600, kNoFlow, {9600, kRtsCts, false}},
      {"user's flow", Configured(10), "", false, kNoSpeed, kDtrDsr, {12000000, kDtrDsr, false}},
      {"user's none", Configured(10), "", false, 1, uint16_t{0}, {1, 0, false}},
      {"user and dual", {}, "", true, 9600, kRtsCts, {9600, kRtsCts, true}}};
  for (const auto& row : rows)
    EXPECT_EQ(ChooseLinkSettings({row.area, row.description, row.dual}, row.speed, row.flow), row.wanted)
        << row.name;
  for (int byte = 2; byte < 256; ++byte) {
    if (byte == 10 || byte == 11) continue;
    const auto area = Configured(static_cast<uint8_t>(byte));
    EXPECT_EQ(ChooseLinkSettings({area, "Quorvi DRV2", false}, {}, {}), LinkSettings{}) << byte;
  }
}

}  // namespace
}  // namespace qvio
