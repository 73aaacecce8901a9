#include "visitor.h"

#include "quorvio/quorvio.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

void Discard(void* /*user*/, const uint8_t* /*data*/, std::size_t /*length*/) {}
void Ignore(void* /*user*/, uint32_t /*code*/) {}

}  // namespace

Visitor::Visitor(std::size_t number, Workshop& workshop, Ledger& ledger) : ledger_(ledger) {
  for (const auto kind : kKinds)
    peers_.at(static_cast<std::size_t>(kind)) = MakePeer(kind, workshop, chipName(number));
}

void Visitor::run(Worker& worker) {
  while (worker.again()) {
    const auto choice = Draw<std::size_t>(worker.random(), 0, kKinds.size());
    if (choice == kKinds.size()) {
      visitBySerialNumber(worker);
    } else {
      visit(worker, kKinds.at(choice));
    }
    worker.pause(1ms, 20ms);
  }
}

void Visitor::visit(Worker& worker, Kind kind) {
  const auto& peer = *peers_.at(static_cast<std::size_t>(kind));
  uint32_t handle = 0;
  worker.doing("opens for a visit");
  const auto result = QV_IO_Open(&handle, peer.locator().c_str(), peer.options(), nullptr, Discard, Ignore);
  const bool mayBeOpenStill = kind == Kind::Usb && !chipIsFree_;
  if (result == QV_IO_OK) {
    worker.doing("closes after a visit");
    const bool wait = Draw(worker.random(), 0, 1) == 1;
    close(worker.random(), handle, wait);
    ledger_.add("visits, " + NameOf(kind));
    if (kind == Kind::Usb) chipIsFree_ = wait;
  } else if (result == QV_IO_ERROR_NO_FREE_HANDLE) {
    ledger_.add("opens without a free handle");
    if (kind == Kind::Usb) chipIsFree_ = true;  // it was opened and released
  } else if (!mayBeOpenStill) {
    ledger_.violation("a visit to " + peer.locator() + " failed: " + std::to_string(result));
  }
}

void Visitor::visitBySerialNumber(Worker& worker) {
  uint32_t handle = 0;
  worker.doing("opens by serial number");
  const auto result =
      QV_IO_Open(&handle, "network:sn:SOAK-NET-1", "iface network:127.0.0.1", nullptr, Discard, Ignore);
  if (result == QV_IO_OK) {
    close(worker.random(), handle, true);
    ledger_.add("visits, by serial number");
  } else if (result == QV_IO_ERROR_NO_FREE_HANDLE) {
    ledger_.add("opens without a free handle");
  } else if (result == QV_IO_ERROR_DEVICE_NOT_FOUND) {
    ledger_.add("opens by serial number in vain");  // it leaves and comes back
  } else {
    ledger_.violation("an open by serial number failed: " + std::to_string(result));
  }
}

/// Now and then with bytes on their way.
void Visitor::close(Random& random, uint32_t handle, bool wait) {
  if (Draw(random, 0, 2) == 0) QV_IO_Send(handle, "visit", 5);
  QV_IO_Close(handle, wait ? 1 : 0);
}

}  // namespace qvsoak
