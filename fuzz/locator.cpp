// Locators: which kind they name, their fields, and what network and USB locators are read as.

#include <optional>
#include <string>

#include "check.h"
#include "io/ftdi/find_chip.h"
#include "io/io_network.h"
#include "options/locator.h"
#include "options/result.h"
#include "quorvio/quorvio.h"
#include "script.h"
#include "util/text.h"

namespace {

using namespace qvio;
using qvfuzz::Check;

void CheckKind(const std::string& locator) {
  uint32_t expected = 0;
  if (locator.starts_with("usb:")) expected = QV_IO_INTERFACE_USB;
  if (locator.starts_with("network:")) expected = QV_IO_INTERFACE_NETWORK;
  if (locator.starts_with("serial:")) expected = QV_IO_INTERFACE_SERIAL;
  uint32_t told = 99;
  const auto result = QV_IO_GetLocatorInterfaceType(&told, locator.c_str());
  Check(InterfaceTypeOf(locator).value_or(0) == expected && told == expected,
        "the first word tells the kind");
  Check(result == (expected != 0 ? uint32_t{QV_IO_OK} : uint32_t{QV_IO_ERROR_INVALID_LOCATOR}),
        "a locator of no kind is refused");
}

void CheckFields(std::string_view locator, const std::vector<std::string_view>& fields) {
  std::size_t position = 0;
  for (const auto field : fields) {
    Check(!field.empty() && field.find(':') == std::string_view::npos,
          "a field is what stands between colons");
    const auto start = static_cast<std::size_t>(field.data() - locator.data());
    Check(start >= position, "fields stand in their order");
    Check(locator.substr(position, start - position).find_first_not_of(':') == std::string_view::npos,
          "nothing is left out but colons");
    position = start + field.size();
  }
  Check(locator.find_first_not_of(':', position) == std::string_view::npos, "nothing is left out at the end");
  Check(LocatorFields(cppu::Join(fields, ':')) == fields, "fields come back");
}

std::string Written(const NetworkTarget& target) {
  auto text = target.serialNumber.empty() ? "network:" + target.host : "network:sn:" + target.serialNumber;
  if (target.port != 0) text += ':' + std::to_string(target.port);
  return text;
}

void CheckNetworkTarget(std::string_view locator, bool isNetwork) {
  try {
    const auto target = ReadNetworkTarget(locator);
    Check(isNetwork, "only a network locator has a network target");
    Check(target.host.empty() != target.serialNumber.empty(), "a target is a host or a serial number");
    const auto again = ReadNetworkTarget(Written(target));
    Check(again.host == target.host && again.serialNumber == target.serialNumber && again.port == target.port,
          "a target comes back");
  } catch (const Failure& failure) {
    Check(failure.code() == QV_IO_ERROR_INVALID_LOCATOR ||
              (isNetwork && failure.code() == QV_IO_ERROR_INVALID_ARGUMENT),
          "a network locator is refused by its form or its port");
  }
}

void CheckUsbLocator(std::string_view locator, bool isUsb) {
  try {
    RequireUsbLocator(locator);
    Check(isUsb, "a USB locator has three fields, the first of which is usb");
  } catch (const Failure& failure) {
    Check(!isUsb && failure.code() == QV_IO_ERROR_INVALID_LOCATOR, "a USB locator is refused by its form");
  }
}

void CheckFormat(std::string_view word) {
  const bool known = word == "sn" || word == "host";
  try {
    ReadNetworkLocatorFormat(word);
    Check(known, "there are two formats");
  } catch (const OptionsError&) {
    Check(!known, "both formats are known");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string locator(qvfuzz::ZeroTerminated({data, size}));
  const auto fields = LocatorFields(locator);
  CheckKind(locator);
  CheckFields(locator, fields);
  CheckNetworkTarget(locator, !fields.empty() && fields[0] == "network");
  CheckUsbLocator(locator, fields.size() == 3 && fields[0] == "usb");
  CheckFormat(locator);
  return 0;
}
