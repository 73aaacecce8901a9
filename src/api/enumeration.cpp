#include "api/enumeration.h"

#include <algorithm>

#include "api/event_record.h"
#include "api/library.h"
#include "io/ftdi/listing.h"
#include "nd/discovery.h"
#include "options/option_sets.h"
#include "options/record_list.h"
#include "util/failure.h"

namespace qvio {
namespace {

/// Which kinds of interface the `iface-type` lines of a text name.
struct Kinds {
  bool usb;
  bool network;
  bool serial;
};

Kinds ReadKinds(const std::vector<std::string>& words) {
  Require(!words.empty(), QV_IO_ERROR_INVALID_ARGUMENT, "no iface-type says what to list");
  const auto named = [&](std::string_view word) { return std::ranges::find(words, word) != words.end(); };
  const bool all = named("all");
  return {all || named("usb"), all || named("network"), all || named("serial")};
}

std::string Write(const RecordList& records, bool onlyLocator, const Selection& include) {
  return onlyLocator ? WriteValues(records, "locator") : WriteRecordList(records, include);
}

std::string ListAllDevices(std::string_view optionText) {
  const auto options = ReadDeviceListOptions(optionText);
  Require(options.onlyLocator || !options.include.empty(), QV_IO_ERROR_INVALID_ARGUMENT,
          "neither only-locator nor an include option says what to write");
  const auto kinds = ReadKinds(options.ifaceTypes);
  RecordList records;
  // In this order in the text. The first kind that fails decides the result of the whole list.
  if (kinds.usb) AppendUsbDevices(options, records);
  if (kinds.network) quorvind::AppendNetworkDevices(options, records);
  if (kinds.serial) TheLibrary().serialPorts.appendRecords(options.forceRescan, records);
  return Write(records, options.onlyLocator, options.include);
}

}  // namespace

std::string ListDevices(uint32_t interfaceType, std::string_view options) {
  if (interfaceType == QV_IO_INTERFACE_ALL) return ListAllDevices(options);
  // Asked through the exported function, so that both always agree.
  uint32_t canEnumerate = 0;
  QV_IO_CanEnumerateDevices(interfaceType, &canEnumerate);
  Require(canEnumerate != 0 && interfaceType == QV_IO_INTERFACE_USB, QV_IO_ERROR_NOT_SUPPORTED,
          "interface type % cannot be listed", {interfaceType});
  return ListUsbLocators(options);
}

std::string ListInterfaces(std::string_view options) {
  const auto selected = ReadInterfaceListOptions(options);
  const auto kinds = ReadKinds(selected.ifaceTypes);
  RecordList records;
  if (kinds.network) quorvind::AppendNetworkInterfaces(records);
  // Serial ports and USB interfaces cannot be listed, and applications rely on this answer to "all".
  Require(!kinds.serial && !kinds.usb, QV_IO_ERROR_NOT_SUPPORTED, "only network interfaces can be listed");
  if (!selected.only.empty()) return WriteValues(records, *selected.only.begin());
  return WriteRecordList(records, selected.include);
}

std::string EventDeviceText(const QV_IO_Event& event, std::string_view options) {
  const auto selected = ReadEventOptions(options);
  return Write({event.device}, selected.onlyLocator, selected.include);
}

}  // namespace qvio
