#include "options/option_sets.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "util/failure.h"

namespace qvio {
namespace {

std::string ErrorOf(const std::function<void()>& read) {
  try {
    read();
  } catch (const OptionsError& error) {
    return error.what();
  }
  return {};
}

const std::function<void(std::string_view)> kReaders[] = {
    ReadGlobalOptions,        ReadSerialOptions,     ReadNetworkOptions, ReadUsbOptions,
    ReadInterfaceListOptions, ReadDeviceListOptions, ReadEventOptions};

TEST(OptionSets, RefuseUnknownKeysOnlyUnderStrict) {
  for (const auto& read : kReaders) {
    EXPECT_EQ(ErrorOf([&] { read("foo 1"); }), "");
    EXPECT_EQ(ErrorOf([&] { read("strict false\nfoo 1"); }), "");
    EXPECT_EQ(ErrorOf([&] { read("strict\nfoo 1"); }), "Unknown option: foo");
    EXPECT_EQ(ErrorOf([&] { read("foo 1\nstrict on"); }), "Unknown option: foo");
    EXPECT_EQ(ErrorOf([&] { read("strict maybe"); }), "Conversion of strict failed");
  }
  EXPECT_EQ(
      ErrorOf([] { ReadDeviceListOptions("strict\ninclude-usb-id\ninclude-device-info\ninclude-all"); }), "");
  EXPECT_EQ(ErrorOf([] { ReadDeviceListOptions("strict\ninclude-name"); }), "Unknown option: include-name");
  EXPECT_EQ(ErrorOf([] { ReadInterfaceListOptions("strict\ninclude-serial-port\nonly-all"); }), "");
}

TEST(OptionSets, ConvertNumbersWithoutWrapping) {
  const struct {
    std::string_view text;
    uint32_t value;
  } good[] = {{"baudrate 115200", 115200},
              {"baudrate  9600", 9600},
              {"baudrate +300 baud", 300},
              {"baudrate 4294967295", 4294967295},
              {"baudrate 010", 10},
              {"baudrate 1\nbaudrate x", 1},
              {"", 0}};
  for (const auto& row : good) EXPECT_EQ(ReadSerialOptions(row.text).baudrate, row.value) << row.text;
  for (const auto* value : {"abc", "", "-1", " -1", "4294967296", "99999999999999999999", "+"}) {
    EXPECT_EQ(ErrorOf([&] { ReadSerialOptions(std::string("baudrate ") + value); }),
              "Conversion of baudrate failed")
        << value;
  }
}

TEST(OptionSets, TellAbsentFromGiven) {
  EXPECT_FALSE(ReadUsbOptions("").baudrate.has_value());
  EXPECT_EQ(ReadUsbOptions("baudrate 0").baudrate, 0U);
  EXPECT_EQ(ReadUsbOptions("ftdi-flow-control").ftdiFlowControl, "");
  EXPECT_EQ(ErrorOf([] { ReadUsbOptions("baudrate x"); }), "Conversion of baudrate failed");
}

TEST(OptionSets, CollectListsWithoutRepetition) {
  const auto options = ReadDeviceListOptions(
      "iface eth0\nfind-usb-pid 5\niface eth1\niface eth0\nfind-usb-pid 05\nfind-usb-pid 6\nforce-rescan");
  EXPECT_EQ(options.ifaces, (std::vector<std::string>{"eth0", "eth1"}));
  EXPECT_EQ(options.findUsbPids, (std::vector<uint32_t>{5, 6}));
  EXPECT_TRUE(options.forceRescan);
  EXPECT_EQ(ErrorOf([] { ReadDeviceListOptions("find-usb-pid 5\nfind-usb-pid x"); }),
            "Conversion of find-usb-pid failed");
}

TEST(OptionSets, ReadALongListInTimeThatGrowsWithItsLength) {
  std::string text;
  for (int line = 0; line < 200000; ++line) text += "find-device-sn X" + std::to_string(line) + '\n';
  const auto list =
      ReadDeviceListOptions(text + text).findDeviceSns;  // takes minutes if each is compared with all
  ASSERT_EQ(list.size(), 200000U);
  EXPECT_EQ(list.front(), "X0");
  EXPECT_EQ(list.back(), "X199999");
}

TEST(OptionSets, SelectKeysThatAreTrue) {
  EXPECT_EQ(ReadDeviceListOptions("include-usb-id\ninclude-locator 1\ninclude-iface off").include,
            (Selection{"locator", "usb-id"}));
  EXPECT_EQ(ReadInterfaceListOptions("only-name").only, Selection{"name"});
  EXPECT_EQ(ErrorOf([] { ReadInterfaceListOptions("only-name\nonly-serial-port"); }),
            "Only one only-* option may be set");
  EXPECT_EQ(ErrorOf([] { ReadInterfaceListOptions("only-name\nonly-iface-type false"); }), "");
}

}  // namespace
}  // namespace qvio
