#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "api/event_record.h"
#include "quorvio/quorvio.h"

namespace qvio {
namespace {

TEST(EventData, ErrorEventsGiveMessageAndCode) {
  const QV_IO_Event event{.type = QV_IO_EVENT_ERROR, .errorCode = 7, .message = "gone"};
  uint32_t code = 99;
  char buffer[8] = "#######";
  std::size_t size = 4;
  EXPECT_EQ(QV_IO_GetErrorEventData(&event, &code, buffer, &size), QV_IO_ERROR_BUFFER_TOO_SMALL);
  EXPECT_EQ(std::pair(size, code), std::pair(std::size_t{5}, 99U));
  EXPECT_EQ(QV_IO_GetErrorEventData(&event, &code, buffer, &size), QV_IO_OK);
  EXPECT_EQ(std::pair(size, code), std::pair(std::size_t{4}, 7U));
  EXPECT_STREQ(buffer, "gone");
  EXPECT_EQ(QV_IO_GetErrorEventData(&event, nullptr, buffer, &size), QV_IO_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(QV_IO_GetDiscoveryEventData(&event, "", buffer, &size), QV_IO_ERROR_WRONG_EVENT_TYPE);
  EXPECT_EQ(QV_IO_GetErrorEventData(nullptr, &code, buffer, &size), QV_IO_ERROR_WRONG_EVENT_TYPE);
  EXPECT_EQ(QV_IO_GetDiscoveryEventData(nullptr, "", buffer, &size), QV_IO_ERROR_WRONG_EVENT_TYPE);
}

TEST(EventData, DiscoveryEventsGiveTheDevice) {
  const QV_IO_Event event{.type = QV_IO_EVENT_DEVICE_FOUND,
                          .device = {{"locator", "network:sn:A"}, {"device-sn", "A"}}};
  const struct {
    const char* options;
    uint32_t result;
    std::string text;
  } rows[] = {{"only-locator", 0, "network:sn:A"},
              {"include-device-sn", 0, "device-sn=A"},
              {"include-all", 0, "device-sn=A|locator=network:sn:A"},
              {"include-iface", 0, ""},
              {nullptr, 0, ""},
              {"only-locator x", 4, "#"}};
  for (const auto& row : rows) {
    char buffer[64] = "#";
    std::size_t size = sizeof buffer;
    EXPECT_EQ(QV_IO_GetDiscoveryEventData(&event, row.options, buffer, &size), row.result);
    EXPECT_EQ(buffer, row.text);
  }
  uint32_t code = 0;
  std::size_t size = 0;
  EXPECT_EQ(QV_IO_GetErrorEventData(&event, &code, nullptr, &size), QV_IO_ERROR_WRONG_EVENT_TYPE);
}

}  // namespace
}  // namespace qvio
