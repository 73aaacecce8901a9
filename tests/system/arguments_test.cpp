// Bad option texts: each has its result code. What QV_IO_Open refuses is in unit/util/failure_test; null
// pointers, handles that are not open and small buffers are in fuzz/exported_calls, whose corpus the suite
// replays.

#include <gtest/gtest.h>

#include <string>

#include "quorvio/quorvio.h"

namespace qvtest {
namespace {

struct OptionsRow {
  const char* options;
  uint32_t result;
};

constexpr const char* kNetwork = "iface-type network\nfind-device-sn nobody\n";

TEST(Enumeration, AnswersForEveryKind) {
  const struct {
    uint32_t type;
    const char* options;
    uint32_t result;
  } rows[] = {{1, "", 14},
              {2, "", 10},
              {3, "", 10},
              {3, "force-rescan", 10},
              {0, "", 10},
              {9999, "iface-type all", 4},
              {9999, "only-locator", 4},
              {9999, "iface-type usb\nonly-locator", 14},
              {9999, "iface-type serial\nonly-locator", 10},
              {9999, "iface-type martian\ninclude-all", 0}};
  for (const auto& row : rows) {
    char text[64] = "#";
    std::size_t size = sizeof text;
    EXPECT_EQ(QV_IO_EnumerateDevices(row.type, row.options, text, &size), row.result) << row.options;
    const bool emptied =
        row.result == 0 || row.type == 1;  // without a driver the USB list is empty, not untouched
    EXPECT_STREQ(text, emptied ? "" : "#") << row.options;
    EXPECT_EQ(size, emptied ? 0 : sizeof text) << row.options;
  }
  std::size_t none = 0;
  EXPECT_EQ(QV_IO_EnumerateDevices(9999, "iface-type network\nonly-locator", nullptr, &none), 12U);
  EXPECT_EQ(none, 1U);
}

TEST(Enumeration, AnswersForEveryNetworkOption) {
  const OptionsRow rows[] = {
      {"only-locator", 0},
      {"only-locator\nlocator-format-network ix", 4},
      {"only-locator\nfind-usb-pid x", 4},
      {"only-locator\ndiscovery-timeout x", 4},
      {"only-locator\niface network:0.0.0.0", 4},
      {"only-locator\niface network:256.1.1.1", 4},
      {"only-locator\niface network:", 4},
      {"only-locator\niface network:none", 4},
      {"only-locator\niface network:127.0.0.1:whatever", 0},
      {"only-locator\niface network:127.0.0.1\niface serial:x", 0},
      {"only-locator\niface network:198.51.100.7", 0}};  // not local: nothing to search
  for (const auto& row : rows) {
    char text[64] = "#";
    std::size_t size = sizeof text;
    const auto options = std::string(kNetwork) + row.options;
    EXPECT_EQ(QV_IO_EnumerateDevices(9999, options.c_str(), text, &size), row.result) << row.options;
    EXPECT_STREQ(text, row.result == 0 ? "" : "#") << row.options;
  }
}

TEST(InterfaceEnumeration, KnowsOnlyNetworkInterfaces) {
  const OptionsRow rows[] = {{"", 4},
                             {"iface-type all\nonly-name", 10},
                             {"iface-type serial\nonly-name", 10},
                             {"iface-type usb\nonly-name", 10},
                             {"iface-type network\nonly-name\nonly-serial-port", 4},
                             {"iface-type network\nonly-name", 0}};
  for (const auto& row : rows) {
    char text[4096];
    std::size_t size = sizeof text;
    EXPECT_EQ(QV_IO_EnumerateInterfaces(row.options, text, &size), row.result) << row.options;
  }
}

TEST(GlobalOptions, AreAnsweredAndRefusedAsAWhole) {
  const OptionsRow rows[] = {{"strict\nfoo", 4},
                             {"strict maybe", 4},
                             {"discovery-iface network:127.0.0.1", 0},
                             {"discovery-iface network:127.0.0.1\ndiscovery-iface network:127.0.0.2", 0},
                             {"discovery-iface network:198.51.100.7", 4},  // not local
                             {"discovery-iface network:0.0.0.0", 4},
                             {"discovery-iface network:", 4},
                             {"discovery-iface network:none\ndiscovery-iface network:x", 0},
                             {"discovery-iface network:x\ndiscovery-iface network:none", 4},
                             {"discovery-iface serial:x", 0},
                             {"locator-format-network host\ndiscovery-iface network:none", 0},
                             {"locator-format-network ip", 4},
                             {"locator-format-network sn\nstrict\nx", 4},
                             {"locator-format-network sn", 0},
                             {nullptr, 0}};
  for (const auto& row : rows) EXPECT_EQ(QV_IO_SetGlobalOptions(row.options), row.result) << row.options;
}

}  // namespace
}  // namespace qvtest
