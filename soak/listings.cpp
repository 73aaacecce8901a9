#include "listings.h"

#include <array>
#include <string>
#include <string_view>

#include "quorvio/quorvio.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

struct Listing {
  const char* name;
  const char* options;  ///< null: of the local interfaces
  const char* steady;   ///< what it must contain
  bool mayMiss;         ///< an answer may get lost or come late
};

constexpr std::array kListings{
    Listing{"USB locators", "iface-type usb\nonly-locator", kSteadyChip, false},
    Listing{"network records", "iface-type network\niface network:127.0.0.1\ninclude-all", kSteadyController,
            true},
    Listing{"USB records, afresh", "iface-type usb\ninclude-all\nforce-rescan", kSteadyChip, false},
    Listing{"USB and network records",
            "iface-type usb\niface-type network\niface network:127.0.0.1\ninclude-all\ndiscovery-timeout 30",
            kSteadyChip, false},
    Listing{"interfaces", nullptr, "", false},
    Listing{"network locators, second interface",
            "iface-type network\niface network:10.77.9.1\nonly-locator\nforce-rescan", "", false}};

/// Writes the listing's text into the buffer, which is large enough, and returns the result.
uint32_t List(const Listing& listing, std::array<char, 65536>& text) {
  std::size_t size = text.size();
  return listing.options == nullptr
             ? QV_IO_EnumerateInterfaces("iface-type network\ninclude-all", text.data(), &size)
             : QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, listing.options, text.data(), &size);
}

}  // namespace

void ListAllTheTime(Worker& worker, Ledger& ledger, std::size_t number) {
  std::array<char, 65536> text{};
  while (worker.again()) {
    const auto& listing = kListings.at(number++ % kListings.size());
    worker.doing(listing.name);
    const auto result = List(listing, text);
    const bool isMissing = std::string_view(text.data()).find(listing.steady) == std::string_view::npos;
    ledger.add(std::string("listings, ") + listing.name);
    if (result != QV_IO_OK)
      ledger.violation(std::string("listing of ") + listing.name + " failed: " + std::to_string(result));
    else if (isMissing && listing.mayMiss)
      ledger.add("listings that missed an answer");
    else if (isMissing)
      ledger.violation(std::string("listing of ") + listing.name + " misses " + listing.steady);
    worker.pause(5ms, 40ms);
  }
}

}  // namespace qvsoak
