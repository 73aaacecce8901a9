#include "network_life.h"

#include <array>
#include <chrono>
#include <string>

#include "sim/controller.h"
#include "tests/support/private_network.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

constexpr int kControllers = 20;

std::string SerialNumber(int number) { return "SOAK-NET-" + std::to_string(number); }

void Add(qvsim::ControllerGroup& group, const std::string& serialNumber) {
  group.add({serialNumber}, qvsim::ServeController({serialNumber}));
}

}  // namespace

NetworkLife::NetworkLife(Ledger& ledger, bool hasInterface)
    : ledger_(ledger), hasInterface_(hasInterface), onLoopback_(loop_, {.spread = 5ms}) {
  for (int number = 0; number < kControllers; ++number) Add(onLoopback_, SerialNumber(number));
  if (!hasInterface) return;
  onInterface_ = std::make_unique<qvsim::ControllerGroup>(
      loop_, qvsim::GroupSettings{.address = "10.77.9.1", .spread = 0ms});
  Add(*onInterface_, "SOAK-SECOND");
}

NetworkLife::~NetworkLife() { QV_IO_SetEventCallback(nullptr, nullptr); }

void NetworkLife::settle() {
  QV_IO_SetGlobalOptions(nullptr);
  for (int number = 0; number < kControllers; ++number) onLoopback_.comeBack(SerialNumber(number));
}

/// The first controller stays as it is.
void NetworkLife::changeControllers(Worker& worker) {
  while (worker.again()) {
    const auto serialNumber = SerialNumber(Draw(worker.random(), 1, kControllers - 1));
    const auto kind = Draw(worker.random(), 0, 4);
    worker.doing("changes a controller");
    if (kind == 0) onLoopback_.setAvailable(serialNumber, Draw(worker.random(), 0, 1) == 1);
    if (kind == 1) onLoopback_.leave(serialNumber);
    if (kind == 2) onLoopback_.vanish(serialNumber);
    if (kind >= 3) onLoopback_.comeBack(serialNumber);
    ledger_.add("controllers changed");
    worker.pause(10ms, 60ms);
  }
}

void NetworkLife::switchSettings(Worker& worker) {
  constexpr std::array kSettings{
      "discovery-iface network:127.0.0.1", "discovery-iface network:none",
      "discovery-iface network:127.0.0.1\ndiscovery-iface network:127.0.0.2\nlocator-format-network host",
      "discovery-iface network:10.77.9.1\ndiscovery-iface network:127.0.0.1\nlocator-format-network sn"};
  const auto count = hasInterface_ ? kSettings.size() : kSettings.size() - 1;
  for (std::size_t round = 0; worker.again(); ++round) {
    const auto* const settings = kSettings.at(round % count);
    worker.doing("switches the settings");
    const bool done = QV_IO_SetGlobalOptions(settings) == QV_IO_OK;
    // An interface that is down cannot be watched; nothing else may be refused.
    if (!done && std::string_view(settings).find("10.77") == std::string_view::npos)
      ledger_.violation("global options were refused");
    ledger_.add("settings switched");
    worker.pause(20ms, 200ms);
    const bool listens = round % 3 != 0;
    worker.doing("switches the event callback");
    if (listens) expectsEvents_ = true;
    QV_IO_SetEventCallback(listens ? onEvent : nullptr, this);
    if (!listens) expectsEvents_ = false;
  }
}

void NetworkLife::onEvent(void* self, uint32_t type, const QV_IO_Event* event) {
  auto& life = *static_cast<NetworkLife*>(self);
  std::array<char, 1024> text{};
  std::size_t size = text.size();
  if (!life.expectsEvents_) life.ledger_.violation("an event after the callback was taken back");
  if (QV_IO_GetDiscoveryEventData(event, "include-all", text.data(), &size) != QV_IO_OK)
    life.ledger_.violation("an event without a record");
  life.ledger_.add(type == QV_IO_EVENT_DEVICE_FOUND ? "events, found" : "events, lost");
}

void NetworkLife::switchInterface(Worker& worker) {
  using qvtest::PrivateNetwork;
  while (hasInterface_ && worker.again()) {
    worker.doing("switches the interface");
    if (!PrivateNetwork::ip("link set qvsoak down"))
      ledger_.violation("the interface cannot be switched off");
    worker.pause(20ms, 300ms);
    if (!PrivateNetwork::ip("link set qvsoak up")) ledger_.violation("the interface cannot be switched on");
    ledger_.add("interface down and up");
    worker.pause(100ms, 1500ms);
    onInterface_->setAvailable("SOAK-SECOND", Draw(worker.random(), 0, 1) == 1);
  }
}

}  // namespace qvsoak
