#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>

#include "life.h"
#include "quorvio/quorvio.hpp"
#include "tests/support/private_network.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;
using quorvio::InterfaceKind;
using qvtest::PrivateNetwork;

constexpr const char* kSecond = "SOAK-SECOND";  // the controller on the second interface

struct Listing {
  const char* name;
  InterfaceKind kind;
  const char* options;
  std::string_view steady;  ///< a serial number that it must contain; empty: none
  bool mayMiss;             ///< an answer may get lost or come late
};

constexpr std::array kListings{
    Listing{"USB", InterfaceKind::usb, "", kSteadyChip, false},
    Listing{"USB, rescan", InterfaceKind::usb, "force-rescan", kSteadyChip, false},
    Listing{"network", InterfaceKind::network, "iface network:127.0.0.1", "SOAK-NET-0", true},
    Listing{"USB and network", InterfaceKind::usb,
            "iface-type network\niface network:127.0.0.1\ndiscovery-timeout 30", kSteadyChip, false},
    Listing{"network, second interface", InterfaceKind::network, "iface network:10.77.9.1\nforce-rescan", "",
            false}};

void Add(qvsim::ControllerGroup& group, const std::string& serialNumber) {
  group.add({serialNumber}, qvsim::ServeController({serialNumber}));
}

/// Its port may be another device's by now; then it stays away.
void ComeBack(NetworkSide& side, const std::string& serialNumber) {
  try {
    side.onLoopback.comeBack(serialNumber);
  } catch (const std::system_error&) {
    side.report.count("controllers without their port");
  }
}

void OnEvent(void* self, uint32_t type, const QV_IO_Event* event) {
  auto& side = *static_cast<NetworkSide*>(self);
  std::array<char, 1024> text{};
  std::size_t size = text.size();
  if (!side.expectsEvents) side.report.violation("an event after the callback was taken back");
  if (QV_IO_GetDiscoveryEventData(event, "include-all", text.data(), &size) != QV_IO_OK)
    side.report.violation("an event without a record");
  side.report.count(type == QV_IO_EVENT_DEVICE_FOUND ? "events, found" : "events, lost");
}

}  // namespace

NetworkSide::NetworkSide(Report& theReport, bool hasInterface)
    : report(theReport), onLoopback(loop, {.spread = 5ms}) {
  for (int number = 0; number < kControllers; ++number) Add(onLoopback, serialNumber(number));
  if (!hasInterface) return;
  onInterface.emplace(loop, qvsim::GroupSettings{.address = kAddress, .spread = 0ms});
  Add(*onInterface, kSecond);
}

void NetworkSide::settle() {
  QV_IO_SetEventCallback(nullptr, nullptr);
  QV_IO_SetGlobalOptions(nullptr);
  for (int number = 0; number < kControllers; ++number) ComeBack(*this, serialNumber(number));
}

void List(Place& place) {
  auto& report = place.scene.report;
  place.pause(5ms, 40ms);
  const auto number = place.draw<std::size_t>(0, kListings.size());
  if (number == kListings.size()) return report.count("interfaces listed", quorvio::listInterfaces().size());
  const auto& listing = kListings.at(number);
  const auto devices = quorvio::listDevices(listing.kind, quorvio::Options::fromLines(listing.options));
  report.count(std::string("listings, ") + listing.name);
  const bool isComplete =
      listing.steady.empty() ||
      std::ranges::find(devices, listing.steady, &quorvio::Device::serialNumber) != devices.end();
  if (isComplete) return;
  if (listing.mayMiss) return report.count("listings that missed an answer");
  report.violation(std::string("a listing misses its device: ") + listing.name);
}

void OpenBySerialNumber(Place& place) {
  place.pause(10ms, 60ms);
  try {
    const quorvio::Channel channel("network:sn:SOAK-NET-1",
                                   quorvio::Options().add("iface", "network:127.0.0.1"));
    place.scene.report.count("opens by serial number");
  } catch (const quorvio::Error& error) {
    if (error.code() != quorvio::Errc::deviceNotFound) throw;
    place.scene.report.count("opens by serial number, device away");
  }
}

/// The first controller stays as it is.
void ChangeController(Place& place) {
  auto& side = place.scene.network;
  auto& group = side.onLoopback;
  const auto serialNumber = NetworkSide::serialNumber(place.draw(1, NetworkSide::kControllers - 1));
  const auto change = place.draw(0, 4);
  if (change == 0) group.setAvailable(serialNumber, place.draw(0, 1) == 1);
  if (change == 1) group.leave(serialNumber);
  if (change == 2) group.vanish(serialNumber);
  if (change >= 3) ComeBack(side, serialNumber);
  place.pause(10ms, 60ms);
}

/// By the C functions: DeviceWatch of quorvio.hpp drops events that come too late, which must be noticed
/// here.
void SwitchSettings(Place& place) {
  constexpr std::array kSettings{
      "discovery-iface network:127.0.0.1", "discovery-iface network:none",
      "discovery-iface network:127.0.0.1\ndiscovery-iface network:127.0.0.2\nlocator-format-network host",
      "discovery-iface network:10.77.9.1\ndiscovery-iface network:127.0.0.1\nlocator-format-network sn"};
  auto& side = place.scene.network;
  const auto count = side.onInterface ? kSettings.size() : kSettings.size() - 1;
  const auto number = place.draw<std::size_t>(0, count - 1);
  const bool mayBeRefused = number == kSettings.size() - 1;  // an interface that is down cannot be watched
  if (QV_IO_SetGlobalOptions(kSettings.at(number)) != QV_IO_OK && !mayBeRefused)
    side.report.violation("global options were refused");
  place.pause(20ms, 200ms);
  const bool listens = place.draw(0, 2) != 0;
  if (listens) side.expectsEvents = true;
  QV_IO_SetEventCallback(listens ? OnEvent : nullptr, &side);
  if (!listens) side.expectsEvents = false;
}

void SwitchInterface(Place& place) {
  auto& side = place.scene.network;
  if (!side.onInterface) return place.pause(1s, 1s);
  if (!PrivateNetwork::ip("link set qvsoak down")) side.report.violation("cannot switch the interface off");
  place.pause(20ms, 300ms);
  if (!PrivateNetwork::ip("link set qvsoak up")) side.report.violation("cannot switch the interface on");
  place.pause(100ms, 1500ms);
  side.onInterface->setAvailable(kSecond, place.draw(0, 1) == 1);
}

}  // namespace qvsoak
