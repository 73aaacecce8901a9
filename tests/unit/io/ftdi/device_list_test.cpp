#include "io/ftdi/device_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "util/failure.h"

namespace qvio {
namespace {

TEST(UsbDevices, AreListedUnderTheProductsOwnDescription) {
  const struct {
    std::string_view raw;
    bool highSpeed;
    std::string_view trimmed;
  } rows[] = {{"Quorvi DRV2 A", true, "Quorvi DRV2"},
              {"Quorvi DRV2 A", false, "Quorvi DRV2 A"},
              {"Quorvi AXU-3D", true, "Quorvi AXU-"},  // " A" is in it, and the last two characters go
              {"Quorvi DRV2 B", true, "Quorvi DRV2 B"},
              {" A", true, ""},
              {"", true, ""}};
  for (const auto& row : rows) EXPECT_EQ(TrimDescription(row.raw, row.highSpeed), row.trimmed) << row.raw;
}

/// A driver whose nodes are the test's.
struct FakeDriver {
  static inline std::vector<d2xx::DeviceNode> nodes;
  static inline uint32_t announced = 0;
  static inline uint32_t status = d2xx::status::kOk;

  static D2xxFunctions functions() {
    D2xxFunctions functions;
    functions.FT_CreateDeviceInfoList = [](uint32_t* count) {
      *count = announced;
      return status;
    };
    functions.FT_GetDeviceInfoList = [](d2xx::DeviceNode* out, uint32_t* count) {
      *count = static_cast<uint32_t>(nodes.size());
      std::copy(nodes.begin(), nodes.end(), out);
      return d2xx::status::kOk;
    };
    return functions;
  }
};

TEST(UsbDevices, AreReadWithinTheirArraysAndAsManyAsThereAre) {
  d2xx::DeviceNode node{3, 6, 0x04036010, 0, {}, {}, nullptr};
  std::fill(std::begin(node.serialNumber), std::end(node.serialNumber), 'S');  // no zero at the end
  std::fill(std::begin(node.description), std::end(node.description), 'D');
  FakeDriver::nodes = {node};
  FakeDriver::announced = 3;  // two have gone in between
  const auto devices = ReadUsbDevices(FakeDriver::functions());
  ASSERT_EQ(devices.size(), 1U);
  const auto& device = devices.front();
  EXPECT_EQ(device.serialNumber, std::string(16, 'S'));
  EXPECT_EQ(device.description, std::string(64, 'D'));
  EXPECT_EQ(device.vid(), 0x0403U);
  EXPECT_EQ(device.pid(), 0x6010U);
  EXPECT_FALSE(device.isAvailable());
  EXPECT_TRUE(device.isHighSpeedDualChannel());
  FakeDriver::status = d2xx::status::kIoError;
  EXPECT_THROW(ReadUsbDevices(FakeDriver::functions()), Failure);
  FakeDriver::status = d2xx::status::kOk;
}

}  // namespace
}  // namespace qvio
