// Opening a chip: what is asked for, what is set, and every way in which it may fail.

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "usb/chips.h"

namespace qvtest {
namespace {

TEST_F(Usb, OpensTheChipThatTheLocatorNamesOrSaysWhyNot) {
  const struct {
    std::string locator;
    std::string options;
    uint32_t result;
  } rows[] = {
      {"usb:sn:SLOW", "", 0},
      {"usb::sn::SLOW:", "", 0},
      {"usb:sn:DUAL", "", 0},  // the first channel
      {"usb:id:4000000002", "", 0},
      {"usb:ix:0", "", 0},
      {"usb:ix:1", "product-name Quorvi DRV2", 0},  // the dual-channel chip, by its trimmed description
      {"usb:sn:SENSOR", "baudrate 9600", 0},
      {"usb:sn:SLOW", "health-check 50\nftdi-latency 255\nrx-timeout 0", 0},
      {"usb:", "", 2},
      {"usb:sn", "", 2},
      {"usb:sn:", "", 2},
      {"usb:sn:A:B", "", 2},
      {"usb:xx:1", "", 2},
      {"usb:ix:1x", "", 2},
      {"usb:ix:-1", "", 2},
      {"usb:ix: 1", "", 2},
      {"usb:ix:18446744073709551616", "", 2},
      {"usb:id:", "", 2},
      {"usb:sn:NOBODY", "", 3},
      {"usb:sn:slow", "", 3},
      {"usb:sn:HELD", "baudrate 9600", 3},
      {"usb:sn:DUALA", "", 3},
      {"usb:sn:SLOW", "product-name Quorvi DRV2", 3},
      {"usb:ix:7", "", 3},
      {"usb:ix:6", "", 3},  // the held one does not count
      {"usb:ix:18446744073709551615", "", 3},
      {"usb:ix:5", "", 3},  // the one without a serial number
      {"usb:id:1006", "", 3},
      {"usb:id:7", "", 3},
      {"usb:sn:SENSOR", "", 4},  // no speed is known
      {"usb:sn:SLOW", "baudrate 0", 4},
      {"usb:sn:SLOW", "baudrate 12000001", 4},
      {"usb:sn:SLOW", "health-check 1", 4},
      {"usb:sn:SLOW", "health-check 49", 4},
      {"usb:sn:SLOW", "ftdi-latency 0", 4},
      {"usb:sn:SLOW", "ftdi-latency 256", 4},
      {"usb:sn:SLOW", "ftdi-flow-control", 4},
      {"usb:sn:SLOW", "ftdi-flow-control xonxoff", 4},
      {"usb:sn:SLOW", "tx-timeout x", 4},
      {"usb:sn:SLOW", "strict\nx", 4}};
  for (const auto& row : rows) {
    EXPECT_EQ(OpenResult(row.locator, row.options), row.result) << row.locator << ' ' << row.options;
    EXPECT_EQ(openHandles(), 0U) << row.locator << ' ' << row.options;
  }
}

TEST_F(Usb, SetsTheLineUpAsChipAndOptionsSay) {
  const struct {
    std::string locator;
    std::string options;
    const char* serial;
    std::string settings;
  } rows[] = {{"usb:sn:SLOW", "", "SLOW",
               "baud=500000 data=8,0,0 event=1 flow=0,0,0 latency=2 purged=3 purges=1 timeouts=1000,1000"},
              {"usb:sn:FAST", "rx-timeout 5\ntx-timeout 6\nftdi-latency 7", "FAST",
               "baud=12000000 data=8,0,0 event=1 flow=256,0,0 latency=7 purged=3 purges=1 timeouts=5,6"},
              {"usb:sn:SENSOR", "baudrate 9600\nftdi-flow-control dtrdsr", "SENSOR",
               "baud=9600 data=8,0,0 event=1 flow=512,0,0 latency=2 purged=3 purges=1 timeouts=1000,1000"},
              {"usb:sn:DUAL", "baudrate 9600", "DUALA",
               "bitmode=255,64 data=8,0,0 event=1 flow=0,0,0 latency=2 purged=3 purges=1 timeouts=1000,1000 "
               "usb=65536,65536"}};
  for (const auto& row : rows) {
    const quorvio::Channel channel(row.locator, quorvio::Options::fromLines(row.options));
    EXPECT_EQ(settings(row.serial), row.settings);
  }
}

TEST_F(Usb, LeavesNothingOpenWhateverDriverCallFails) {
  constexpr uint32_t kOther = 18;
  struct Row {
    const char* function;
    uint32_t call = 1;
    uint32_t status = kOther;
    const char* locator = "usb:sn:SLOW";
    uint32_t result = 5;
  };
  std::vector<Row> rows = {{"FT_CreateDeviceInfoList", 1, 4, "usb:ix:0"},
                           {"FTID_GetNumDevices", 1, kOther, "usb:id:1001"},
                           {"FT_OpenEx", 1, 3},
                           {"FT_SetBaudRate", 1, 7, "usb:sn:SLOW", 4},
                           {"FT_SetBaudRate", 1, 4},
                           {"FT_SetBitMode", 1, kOther, "usb:sn:DUAL", 0},  // the reset may fail
                           {"FT_SetBitMode", 2, kOther, "usb:sn:DUAL"},
                           {"FT_SetUSBParameters", 1, kOther, "usb:sn:DUAL"}};
  for (const auto* function : {"FT_CreateDeviceInfoList", "FT_GetDeviceInfoList", "FT_EE_UASize",
                               "FT_EE_UARead", "FT_SetDataCharacteristics", "FT_SetFlowControl",
                               "FT_SetTimeouts", "FT_SetLatencyTimer", "FT_Purge", "FT_SetEventNotification"})
    rows.push_back({function});
  for (const auto& row : rows) {
    failCall(row.function, row.call, row.status);
    EXPECT_EQ(OpenResult(row.locator), row.result) << row.function << ' ' << row.call;
    EXPECT_EQ(openHandles(), 0U) << row.function;
    failCall(row.function, 0, 0);
  }
  EXPECT_EQ(OpenResult("usb:sn:SLOW"), QV_IO_OK) << "and then it opens";
}

TEST_F(Usb, KeepsTheApplicationsSignalsFromTheDriversThreads) {
  sigset_t before{};
  sigset_t after{};
  ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
  const quorvio::Channel channel("usb:sn:SLOW");
  ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof after), 0) << "of this thread nothing has changed";
  EXPECT_TRUE(Eventually([] {
    const auto all = SignalsBlockedBy("qvio-rx");
    // The stand-in's thread, or that of our own driver.
    return !all.empty() && (SignalsBlockedBy("qvsim-ftdi") == all || SignalsBlockedBy("ftdi-usb") == all);
  }));
}

TEST_F(Usb, ReadsUserAreasOfEverySize) {
  const struct {
    std::string area;
    const char* baud;
    uint32_t result;
  } rows[] = {{"", "baud=12000000", 0},
              {"ua=5156494f", "baud=12000000", 0},  // 4 bytes hold no configuration
              {"ua=5156494f01", "baud=500000", 0},
              {"ua=5156494f00", "baud=12000000", 0},       // it leaves it to the product
              {"ua=" + std::string(131074, '0'), "", 5}};  // 65,537 bytes: no EEPROM comes near
  for (const auto& row : rows) {
    plugIn("desc=\"Quorvi DRV2\" serial=UA " + row.area + "\n");
    EXPECT_EQ(OpenResult("usb:sn:UA"), row.result) << row.area.substr(0, 20);
    EXPECT_EQ(settings("UA").substr(0, settings("UA").find(' ')), row.baud) << row.area.substr(0, 20);
  }
}

}  // namespace
}  // namespace qvtest
