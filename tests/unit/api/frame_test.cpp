#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "api/event_dispatcher.h"
#include "api/event_record.h"
#include "api/handle_table.h"
#include "options/result.h"

namespace qvio {
namespace {

class NullDevice final : public IoDevice {
 public:
  NullDevice() : IoDevice({"serial:x", "", nullptr, nullptr, nullptr}) {}
  uint32_t open(std::shared_ptr<IoDevice> /*self*/) override { return QV_IO_OK; }
  void close(bool /*wait*/) override {}
  uint32_t send(const void* /*data*/, std::size_t /*length*/) override { return QV_IO_OK; }
  uint32_t getProperty(const char* /*key*/, char* /*buffer*/, std::size_t* /*size*/) override {
    return QV_IO_OK;
  }
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

TEST(ResultOf, TurnsEveryExceptionIntoACode) {
  EXPECT_EQ(ResultOf([] {}), QV_IO_OK);
  EXPECT_EQ(ResultOf([]() -> uint32_t { return 11; }), 11U);
  EXPECT_EQ(ResultOf([] { throw Failure(3); }), 3U);
  EXPECT_EQ(ResultOf([] { throw OptionsError("x"); }), 4U);
  EXPECT_EQ(ResultOf([] { throw std::bad_alloc(); }), 5U);
  EXPECT_EQ(ResultOf([] { throw 1; }), 5U);  // NOLINT(hicpp-exception-baseclass): foreign code may
}

using Calls = std::vector<std::pair<uint32_t, const QV_IO_Event*>>;

void Record(void* calls, uint32_t type, const QV_IO_Event* event) {
  static_cast<Calls*>(calls)->emplace_back(type, event);
}

TEST(EventDispatcher, CallsTheCallbackThatIsSetUnderTheMutex) {
  std::mutex mutex;
  EventDispatcher events(mutex);
  const QV_IO_Event event{.type = QV_IO_EVENT_DEVICE_LOST};
  events.dispatch(event);  // dropped: no callback
  Calls calls;
  events.set(Record, &calls);
  events.dispatch(event);
  EXPECT_EQ(calls, (Calls{{QV_IO_EVENT_DEVICE_LOST, &event}}));

  events.set([](void* held, uint32_t /*type*/,
                const QV_IO_Event* /*event*/) { EXPECT_FALSE(static_cast<std::mutex*>(held)->try_lock()); },
             &mutex);
  std::thread([&] { events.dispatch(event); }).join();

  events.set([](void*, uint32_t, const QV_IO_Event*) { throw 1; },
             nullptr);  // NOLINT(hicpp-exception-baseclass)
  EXPECT_ANY_THROW(events.dispatch(event));
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
}

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
