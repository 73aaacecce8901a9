// The parts of the driver that only calculate.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "driver/divisor.h"
#include "driver/packets.h"
#include "driver/user_area.h"

namespace qvtest {
namespace {

using namespace qvusb;

TEST(OwnDriver, DividesTheClockOrRefusesASpeed) {
  const struct {
    uint32_t baud;
    bool isHighSpeed;
    std::optional<Divisor> divisor;
  } rows[] = {{3000000, false, Divisor{0, 0}},
              {2000000, false, Divisor{1, 0}},
              {1500000, false, Divisor{2, 0}},
              {500000, false, Divisor{6, 0}},
              {115200, false, Divisor{0x001A, 0}},
              {9600, false, Divisor{0x4138, 0}},
              {921600, false, Divisor{0x8003, 0}},
              {460800, false, Divisor{0x4006, 0}},
              {230400, false, Divisor{0x000D, 0}},
              {300, false, Divisor{0x2710, 0}},
              {1263158, false, Divisor{0x0002, 1}},
              {12000000, true, Divisor{0, 2}},
              {8000000, true, Divisor{1, 2}},
              {115200, true, Divisor{0xC068, 2}},
              {300, true, Divisor{0x2710, 0}},
              {0, false, {}},
              {100, false, {}},
              {3000001, false, {}},
              {12000000, false, {}},
              {12000001, true, {}},
              {2400000, false, {}},
              {2050000, false, Divisor{1, 0}}};
  for (const auto& row : rows) EXPECT_EQ(DivisorFor(row.baud, row.isHighSpeed), row.divisor) << row.baud;
}

TEST(OwnDriver, TakesTheStatusOutOfEveryPacket) {
  const struct {
    std::string transfer;
    std::string bytes;
  } rows[] = {{"", ""}, {"s", ""}, {"st", ""}, {"stA", "A"}, {"stABstCDstE", "ABCDE"}, {"stABst", "AB"}};
  for (const auto& row : rows) {
    std::string bytes;
    ForEachPayload(row.transfer, 4, [&](std::string_view piece) { bytes += piece; });
    EXPECT_EQ(bytes, row.bytes) << row.transfer;
  }
}

TEST(OwnDriver, FindsTheUserAreaAfterTheSerialNumber) {
  constexpr uint16_t kVendor = 0x0403;
  const struct {
    const char* name;
    std::size_t size;      // as the type of chip has it
    std::size_t realSize;  // in the chip
    uint16_t vendor;
    uint16_t text;  // place and length
    UserArea area;
  } rows[] = {{"small", 128, 128, kVendor, 0x0AC0, {0x4A, 0x34}},
              {"small, found out", 0, 128, kVendor, 0x0AC0, {0x4A, 0x34}},
              {"large, found out", 0, 256, kVendor, 0x0AC0, {0xCA, 0x34}},
              {"large", 256, 256, kVendor, 0x12A0, {0xB2, 0x4C}},
              {"nothing left", 128, 128, kVendor, 0x3EC0, {0x7E, 0}},
              {"blank", 128, 128, 0xFFFF, 0xFFFF, {}},
              {"missing", 0, 128, 0, 0, {}},
              {"text missing", 128, 128, kVendor, 0xFFFF, {}},
              {"no serial number", 128, 128, kVendor, 0x00C0, {}},
              {"odd", 128, 128, kVendor, 0x0BC0, {}},
              {"over the end", 128, 128, kVendor, 0x40C0, {}}};
  for (const auto& row : rows) {
    const auto read = [&](std::size_t word) -> uint16_t {
      word %= row.realSize / 2;
      if (word == 1) return row.vendor;
      if (word == 9) return row.text;
      return static_cast<uint16_t>(word);
    };
    EXPECT_EQ(FindUserArea(row.size, read), row.area) << row.name;
  }
}

}  // namespace
}  // namespace qvtest
