#include "util/failure.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <future>
#include <string>

#include "quorvio/quorvio.h"

namespace qvio {
namespace {

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
      uint32_t handle = 99;
      const auto result = QV_IO_Open(&handle, locator, options, nullptr, nullptr, nullptr);
      EXPECT_EQ(handle, 0U) << locator;
      return result;
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
      {open("serial:", "baudrate 9600"), 2, "not serial:PATH: serial:"},
      {open("serial:/none", ""), 4, "baudrate is not given or 0"},
      {open("serial:/none", "baudrate 0"), 4, "baudrate is not given or 0"},
      {open("serial:/none", "baudrate 9600\nxonxoff maybe"), 4, "Conversion of xonxoff failed"},
      {open("serial:/dev/null", "baudrate fast"), 4, "Conversion of baudrate failed"},
      {open("serial:/dev/null", "strict\nconect-timeout 5"), 4, "Unknown option: conect-timeout"},
      {open("serial:/dev/null", "baudrate 9600"), 5, "/dev/null is not a serial port"},
      {open("serial:/none", "baudrate 9600\nspeed 1"), 5, "cannot open /none: No such file or directory"},
      {open("network:", "port 1"), 2, "not network:HOST:PORT or network:sn:SERIAL: network:"},
      {open("network:127.0.0.1:0", ""), 4, "no port is given for 127.0.0.1"},
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
      {[] { return QV_IO_SetGlobalOptions("locator-format-network ix"); }, 4, "Unknown locator format: ix"},
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

}  // namespace
}  // namespace qvio
