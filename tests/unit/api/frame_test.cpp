#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "api/event_dispatcher.h"
#include "api/event_record.h"
#include "api/handle_table.h"
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

TEST(ResultOf, TurnsEveryExceptionIntoACode) {
  EXPECT_EQ(ResultOf([] {}), QV_IO_OK);
  EXPECT_EQ(ResultOf([]() -> uint32_t { return 11; }), 11U);
  EXPECT_EQ(ResultOf([] { throw Failure(3, "x"); }), 3U);
  EXPECT_EQ(ResultOf([] { throw OptionsError("x"); }), 4U);
  EXPECT_EQ(ResultOf([] { throw std::bad_alloc(); }), 5U);
  EXPECT_EQ(ResultOf([] { throw 1; }), 5U);  // NOLINT(hicpp-exception-baseclass): foreign code may
}

TEST(ResultOf, KeepsTheReasonOfTheCallingThreadsLastFailure) {
  const auto open = [](const char* locator, const char* options) {
    return [=] {
      uint32_t handle = 0;
      return QV_IO_Open(&handle, locator, options, nullptr, nullptr, nullptr);
    };
  };
  const auto list = [](uint32_t type, const char* options, std::size_t room) {
    return
        [=]() mutable { return QV_IO_EnumerateDevices(type, options, std::string(room, ' ').data(), &room); };
  };
  const struct {
    std::function<uint32_t()> call;
    uint32_t result;
    std::string reason;  ///< its beginning, where it ends with a colon and a blank
  } rows[] = {
      {open("tty", ""), 2, "not a locator: \"tty\""},
      {open("serial:a:b", ""), 2, "not serial:PATH: serial:a:b"},
      {open("serial:/dev/null", ""), 4, "baudrate is not given or 0"},
      {open("serial:/dev/null", "baudrate fast"), 4, "Conversion of baudrate failed"},
      {open("serial:/dev/null", "strict\nconect-timeout 5"), 4, "Unknown option: conect-timeout"},
      {open("serial:/dev/null", "baudrate 9600"), 5, "/dev/null is not a serial port"},
      {open("serial:/none", "baudrate 9600"), 5, "cannot open /none: No such file or directory"},
      {open("network:a:b:c", ""), 2, "not network:HOST:PORT or network:sn:SERIAL: network:a:b:c"},
      {open("network:a:70000", ""), 4, "port 70000 is above 65535"},
      {open("network:a", "port 65536"), 4, "port 65536 is above 65535"},
      {open("network:a:x", ""), 4, "not a port: x"},
      {open("network:127.0.0.1", ""), 4, "no port is given for 127.0.0.1"},
      {open("network:255.255.255.255:1", ""), 3,
       "cannot connect to 255.255.255.255:1: Network is unreachable"},
      {open("network:no-such-host.invalid:5", ""), 3, "cannot resolve no-such-host.invalid: "},
      {open("network:sn:X", ""), 3, "no device with serial number X is known, and no interface to search"},
      {open("network:sn:X", "iface network:ten"), 4, "not an interface address: \"ten\""},
      {open("network:sn:X", "iface network:198.51.100.7"), 3, "not a local address: 198.51.100.7"},
      {open("network:sn:X", "iface network:127.0.0.1\ndiscovery-timeout 1"), 3,
       "no device with serial number X answered on 127.0.0.1"},
      {open("usb:sn:X", ""), 14, "FTDI's driver cannot be used: libftd2xx.so: "},
      {list(QV_IO_INTERFACE_USB, "", 0), 14, "FTDI's driver cannot be used: libftd2xx.so: "},
      {list(QV_IO_INTERFACE_SERIAL, "", 0), 10, "interface type 3 cannot be listed"},
      {list(QV_IO_INTERFACE_ALL, "include-all", 0), 4, "no iface-type says what to list"},
      {[] { return QV_IO_SetGlobalOptions("discovery-iface network:198.51.100.7"); }, 4,
       "not a local address: 198.51.100.7"},
      {[] { return QV_IO_SetGlobalOptions("discovery-iface network:ten"); }, 4,
       "not an interface address: \"ten\""},
      {[] { return QV_IO_Close(63, 1); }, 6, "handle 63 is not open"},
      {[] { return QV_IO_GetVersion(nullptr, nullptr, nullptr); }, 4, "a pointer is null"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.call(), row.result) << row.reason;
    const bool isWhole = !row.reason.ends_with(": ");
    EXPECT_EQ(LastFailureReason().substr(0, isWhole ? std::string::npos : row.reason.size()), row.reason);
  }
  EXPECT_EQ(std::async(std::launch::async, [] { return std::string(LastFailureReason()); }).get(), "");
}

TEST(Failure, FillsItsReasonInAndCutsItOff) {
  EXPECT_STREQ(Failure(5, "% of % %", {1U, "x", std::string_view{}}, ENOENT).what(),
               "1 of x : No such file or directory");
  EXPECT_STREQ(Failure(5, "%", {"100%", 18446744073709551615U}).what(), "100%18446744073709551615");
  EXPECT_EQ(Failure(5, "%%", {std::string(150, 'x'), std::string(150, 'y')}, ENOENT).what(),
            std::string(150, 'x') + std::string(Reason::kLongest - 150, 'y'));
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
