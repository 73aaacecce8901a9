#include "api/handle_table.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <tuple>

#include "util/failure.h"

namespace qvio {
namespace {

class NullDevice final : public IoDevice {
 public:
  NullDevice() : IoDevice({ReadLocator("serial:x"), "", nullptr, nullptr, nullptr}) {}
  void open(std::shared_ptr<IoDevice> /*self*/) override {}
  void close(bool /*wait*/) override {}
  void send(std::span<const uint8_t> /*bytes*/) override {}
  std::string property(std::string_view /*key*/) override { return {}; }
};

TEST(HandleTable, GivesTheLowestFreeHandleAndNoSixtyFifth) {
  std::mutex mutex;
  HandleTable table(mutex);
  for (uint32_t handle = 0; handle < QV_IO_HANDLE_COUNT; ++handle) {
    EXPECT_EQ(table.store(std::make_shared<NullDevice>()), handle);
  }
  EXPECT_FALSE(table.store(std::make_shared<NullDevice>()).has_value());
  const std::weak_ptr<IoDevice> third = table.take(3);
  EXPECT_TRUE(third.expired());
  table.take(40);
  EXPECT_EQ(table.store(std::make_shared<NullDevice>()), 3U);
  EXPECT_EQ(table.store(std::make_shared<NullDevice>()), 40U);
  {
    const std::lock_guard lock(mutex);
    table.clear();
  }
  EXPECT_THROW(std::ignore = table.at(0), Failure);
}

TEST(HandleTable, RefusesHandlesThatAreNotOpen) {
  std::mutex mutex;
  HandleTable table(mutex);
  for (const uint32_t handle : {0U, 63U, 64U, 4294967295U}) {
    EXPECT_EQ(ResultOf([&] { std::ignore = table.at(handle); }), QV_IO_ERROR_INVALID_HANDLE) << handle;
    EXPECT_EQ(ResultOf([&] { table.take(handle); }), QV_IO_ERROR_INVALID_HANDLE) << handle;
  }
}

}  // namespace
}  // namespace qvio
