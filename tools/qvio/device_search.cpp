#include "device_search.h"

#include "discovery_options.h"
#include "listed_text.h"
#include "quorvio/quorvio.h"

namespace qvio_tool {
namespace {

constexpr std::size_t kUsualSize = 1 << 20;  // a thousand devices; each repetition would search again

std::string Lines(const std::string& key, const quorvind::IP4Set& addresses) {
  std::string lines;
  for (const auto& address : addresses) lines += key + " network:" + quorvind::IP4ToString(address) + '\n';
  return lines;
}

}  // namespace

DeviceSearch::DeviceSearch(const quorvind::IP4Set& addresses)
    : options_("iface-type network\ninclude-all\nfind-only-available false\n" + Lines("iface", addresses)) {
  if (QV_IO_SetGlobalOptions(Lines("discovery-iface", addresses).c_str()) != QV_IO_OK)
    throw CommandFailure(WithHint(FailureText(), kWhichAddresses));
}

DeviceSearch::~DeviceSearch() { QV_IO_SetGlobalOptions(""); }

std::vector<Device> DeviceSearch::ask(std::chrono::milliseconds time) const {
  const auto options = options_ + "discovery-timeout " + std::to_string(time.count()) + '\n';
  return ReadDevices(ListedText(kUsualSize, [&](char* buffer, std::size_t* size) {
    return QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, options.c_str(), buffer, size);
  }));
}

}  // namespace qvio_tool
