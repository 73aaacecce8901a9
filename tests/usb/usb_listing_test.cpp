// Chips as locators and as records, and how often the driver is asked.

#include <string>
#include <tuple>

#include "support/discovery.h"
#include "usb/chips.h"

namespace qvtest {
namespace {

std::string List(uint32_t interfaceType, const std::string& options, uint32_t& result) {
  return ListingText(
      [&](char* buffer, std::size_t* size) {
        return QV_IO_EnumerateDevices(interfaceType, options.c_str(), buffer, size);
      },
      result);
}

TEST_F(Usb, AreListedAsLocators) {
  const struct {
    const char* options;
    uint32_t result;
    const char* text;
  } rows[] = {
      {"canonical-locator\nproduct-name Quorvi DRV2", 0, "usb:sn:FAST\nusb:sn:DUALA"},
      {"include-sn\nusb-pid 24592", 0, "usb:sn:DUALA\nusb:sn:DUALB"},
      {"include-id\ninclude-sn\nusb-vid 1027\nusb-pid 24578", 0, "usb:sn:SENSOR"},  // no id, no marker
      {"include-id\ninclude-sn\nproduct-name Quorvi AXU-3D", 0, "usb:sn:HELD\nusb:id:1007:sn:"},
      {"include-sn\ninclude-usb-pid\ninclude-ds\ninclude-id\ninclude-usb-vid\nproduct-name Quorvi DRV-I", 0,
       "usb:id:1001:usb-vid:1027:usb-pid:24577:ds:Quorvi DRV-I:sn:SLOW"},
      {"product-name Quorvi DRV-I", 0, "usb"},
      {"canonical-locator\nproduct-name nothing", 0, ""},
      {"canonical-locator\nusb-vid 1", 0, ""},
      {"canonical-locator\ninclude-sn", 4, ""},
      {"canonical-locator\ninclude-id", 4, ""},
      {"canonical-locator\nusb-vid x", 4, ""},
      {"strict\nx", 4, ""}};
  for (const auto& row : rows) {
    uint32_t result = 99;
    EXPECT_EQ(List(QV_IO_INTERFACE_USB, std::string("force-rescan\n") + row.options, result), row.text)
        << row.options;
    EXPECT_EQ(result, row.result) << row.options;
  }
  failCall("FTID_GetNumDevices", 1, 18);
  uint32_t result = 0;
  List(QV_IO_INTERFACE_USB, "include-id", result);
  EXPECT_EQ(result, QV_IO_ERROR_QUERY_FAILED);
}

TEST_F(Usb, AreListedAsRecords) {
  const struct {
    std::string options;
    uint32_t result;
    const char* text;
  } rows[] = {
      {"include-all\nfind-usb-product-name Quorvi DRV-I", 0,
       "available=1|device-sn=SLOW|iface-type=usb|locator=usb:sn:SLOW|usb-desc=Quorvi DRV-I|usb-id=1001|"
       "usb-pid=24577|usb-vid=1027"},
      {"only-locator\nlocator-format-usb id\nfind-usb-product-name Quorvi DRV2", 0,
       "usb:id:4000000002\nusb:id:1004"},
      {"only-locator\nlocator-format-usb id\nfind-usb-pid 24578", 0, ""},  // without an id no locator
      {"include-protocol-id\ninclude-device-sn\nfind-usb-product-name Quorvi DRV2", 0,
       "device-sn=FAST|protocol-id=5\ndevice-sn=DUALA"},
      {"only-locator\nfind-protocol-id 5\nfind-protocol-id 6", 0, "usb:sn:FAST"},
      {"only-locator\nfind-protocol-id 6", 0, ""},
      {"include-device-sn\ninclude-available\nfind-only-available false\nfind-usb-product-name Quorvi AXU-3D",
       0, "available=0|device-sn=HELD\navailable=1|device-sn="},
      {"only-locator\nfind-usb-vid 1027\nfind-usb-pid 24592\nfind-usb-pid 24578", 0,
       "usb:sn:SENSOR\nusb:sn:DUALA\nusb:sn:DUALB"},
      {"only-locator\nfind-usb-vid 1", 0, ""},
      {"only-locator\nlocator-format-usb ix", 4, ""},
      {"", 4, ""}};
  for (const auto& row : rows) {
    uint32_t result = 99;
    EXPECT_EQ(List(QV_IO_INTERFACE_ALL, "force-rescan\niface-type usb\n" + row.options, result), row.text)
        << row.options;
    EXPECT_EQ(result, row.result) << row.options;
  }
  uint32_t result = 0;
  List(QV_IO_INTERFACE_ALL, "iface-type all\nonly-locator\niface network:127.0.0.1\ndiscovery-timeout 1",
       result);
  EXPECT_EQ(result, QV_IO_ERROR_NOT_SUPPORTED) << "the serial list is never fresh";
}

TEST_F(Usb, AreAvailableOnlyWhileTheyAreNotOpen) {
  uint32_t result = 0;
  const auto available = [&] {
    return List(QV_IO_INTERFACE_ALL, "iface-type usb\nonly-locator\nfind-usb-pid 24577", result);
  };
  const std::string all = "usb:sn:SLOW\nusb:sn:FAST\nusb:sn:";
  for (const auto* locator : {"usb:sn:SLOW", "usb:ix:0", "usb:id:1001"}) {
    for (const uint32_t wait : {1U, 0U}) {
      EXPECT_EQ(available(), all) << locator;
      RecordedChannel channel(locator);
      EXPECT_EQ(available(), "usb:sn:FAST\nusb:sn:") << locator;
      channel.close(wait);
      EXPECT_TRUE(Eventually([&] { return openHandles() == 0 && ReceiveThreads() == 0; }));
      EXPECT_EQ(available(), all) << locator;
    }
  }
}

TEST_F(Usb, AreAskedForNoOftenerThanNeeded) {
  uint32_t result = 0;
  const auto callsOf = [&](uint32_t type, const std::string& options) {
    find<decltype(QVSIM_ResetCalls)>("QVSIM_ResetCalls")();
    List(type, options, result);
    return std::tuple(totalCalls(), calls("FT_CreateDeviceInfoList"), calls("FT_Open"));
  };
  using Counts = std::tuple<uint64_t, uint64_t, uint64_t>;
  const std::string records = "iface-type usb\nonly-locator\nfind-only-available false";
  EXPECT_EQ(callsOf(QV_IO_INTERFACE_USB, "canonical-locator\nforce-rescan"), Counts(2, 1, 0));
  EXPECT_EQ(callsOf(QV_IO_INTERFACE_USB, "canonical-locator"), Counts(0, 0, 0)) << "fresh";
  EXPECT_EQ(callsOf(QV_IO_INTERFACE_ALL, records), Counts(0, 0, 0)) << "fresh for records too";
  EXPECT_EQ(std::get<2>(callsOf(QV_IO_INTERFACE_USB, "include-id")), 7U) << "each chip once";
  EXPECT_EQ(callsOf(QV_IO_INTERFACE_USB, "include-id"), Counts(5, 0, 2)) << "ids that were read are kept";
  EXPECT_EQ(std::get<2>(callsOf(QV_IO_INTERFACE_ALL, records + "\ninclude-usb-id")), 2U);
  ASSERT_EQ(find<decltype(QVSIM_Release)>("QVSIM_Release")("HELD"), 1);
  EXPECT_EQ(List(QV_IO_INTERFACE_USB, "include-id\ninclude-sn\nproduct-name Quorvi AXU-3D", result),
            "usb:id:1006:sn:HELD\nusb:id:1007:sn:")
      << "another process has closed it";
  EXPECT_EQ(std::get<2>(callsOf(QV_IO_INTERFACE_ALL, records + "\ninclude-protocol-id")), 6U)
      << "not the held one";
  EXPECT_EQ(std::get<2>(callsOf(QV_IO_INTERFACE_ALL, records + "\ninclude-protocol-id")), 0U);
  std::this_thread::sleep_for(std::chrono::milliseconds(1600));  // the lifetime of the list
  EXPECT_EQ(callsOf(QV_IO_INTERFACE_ALL, records), Counts(2, 1, 0)) << "expired";

  failCall("FT_GetDeviceInfoList", 1, 18);
  List(QV_IO_INTERFACE_USB, "canonical-locator\nforce-rescan", result);
  EXPECT_EQ(result, QV_IO_ERROR_QUERY_FAILED);
  EXPECT_EQ(callsOf(QV_IO_INTERFACE_USB, "canonical-locator"), Counts(2, 1, 0))
      << "a failed list is not kept";
  EXPECT_EQ(result, QV_IO_OK);
}

}  // namespace
}  // namespace qvtest
