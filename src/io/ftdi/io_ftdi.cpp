#include "io/ftdi/io_ftdi.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "io/ftdi/find_chip.h"
#include "io/ftdi/link_settings.h"
#include "io/ftdi/usb.h"
#include "util/failure.h"
#include "util/lookup.h"
#include "util/scope_exit.h"

namespace qvio {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr auto kRestAfterFault = 10ms;
// Shorter periods would keep the driver, and the bus, busy with status requests.
constexpr uint32_t kShortestHealthCheck = 50;
constexpr uint32_t kLongestLatency = 255;

std::optional<uint16_t> ReadFlowControl(const std::optional<std::string>& word) {
  static constexpr std::array<std::pair<std::string_view, uint16_t>, 3> kWords{
      {{"none", d2xx::kFlowNone}, {"rtscts", d2xx::kFlowRtsCts}, {"dtrdsr", d2xx::kFlowDtrDsr}}};
  if (!word) return {};
  const auto* const value = cppu::Lookup(kWords, *word);
  Require(value != nullptr, QV_IO_ERROR_INVALID_ARGUMENT,
          "ftdi-flow-control is not none, rtscts or dtrdsr: %", {*word});
  return *value;
}

void CheckOptions(const UsbOptions& options) {
  Require(options.healthCheck == 0 || options.healthCheck >= kShortestHealthCheck,
          QV_IO_ERROR_INVALID_ARGUMENT, "health-check % is neither 0 nor at least %",
          {options.healthCheck, kShortestHealthCheck});
  Require(options.baudrate != 0U, QV_IO_ERROR_INVALID_ARGUMENT, "baudrate is 0");
  ReadFlowControl(options.ftdiFlowControl);
  Require(options.ftdiLatency >= 1 && options.ftdiLatency <= kLongestLatency, QV_IO_ERROR_INVALID_ARGUMENT,
          "ftdi-latency % is not within 1 to %", {options.ftdiLatency, kLongestLatency});
}

Chip OpenConfigured(const UsbDevice& device, const UsbOptions& options, const D2xxFunctions& functions) {
  Require(!device.serialNumber.empty(), QV_IO_ERROR_DEVICE_NOT_FOUND, "the chip has no serial number");
  auto chip = Chip::openBySerialNumber(functions, device.serialNumber);
  const auto userArea = chip.readUserArea();
  const auto settings = ChooseLinkSettings({userArea, device.rawDescription, device.isHighSpeedDualChannel()},
                                           options.baudrate, ReadFlowControl(options.ftdiFlowControl));
  chip.configure(settings, {options.rxTimeout, options.txTimeout, options.ftdiLatency});
  return chip;
}

/// What a failed driver call tells the application.
uint32_t NoticeOf(uint32_t status) {
  if (status == d2xx::status::kOk) return QV_IO_OK;
  return status == d2xx::status::kIoError ? QV_IO_ERROR_CONNECTION_LOST : QV_IO_ERROR_RECEIVE_FAILED;
}

}  // namespace

void IoFtdi::open(std::shared_ptr<IoDevice> self) {
  UsbAccess usb;
  RequireUsbLocator(locator());
  const auto options = ReadUsbOptions(this->options());
  CheckOptions(options);
  sendLimit_ = milliseconds(options.txTimeout);
  healthCheck_ = milliseconds(options.healthCheck);
  chip_ = OpenConfigured(FindChip(locator(), options, usb), options, usb.functions());
  // The list still calls this chip available.
  usb.devices().drop();
  start(std::move(self));
}

void IoFtdi::start(std::shared_ptr<IoDevice> self) {
  event_.emplace();
  stop_.emplace();
  const auto status =
      chip_.functions().FT_SetEventNotification(chip_.handle(), d2xx::kEventReceived, event_->driverHandle());
  RequireDriver(status, "FT_SetEventNotification");
  thread_ = cppu::Thread("qvio-rx", {std::move(self), this});
}

void IoFtdi::close(bool wait) {
  stop();
  wait ? thread_.join() : cppu::Threads::all().reap();
}

void IoFtdi::stop() noexcept {
  // Under the event's lock: between the look at the flag and the wait a signal would get lost.
  const std::lock_guard lock(*event_);
  stop_->request();
  event_->signal();
}

void IoFtdi::run() {
  const cppu::ScopeExit closeChip([this] {  // also when a callback ends the thread by pthread_exit
    // Waits for the calls of the application that use the chip.
    const std::lock_guard alone(inUse_);
    chip_.close();
    TheUsb().devices.drop();
  });
  std::array<uint8_t, QV_IO_RECEIVE_CHUNK> buffer{};
  while (!stop_->requested()) receive(awaitBytes(), buffer);
}

IoFtdi::QueueState IoFtdi::query() const {
  QueueState state;
  uint32_t toTransmit = 0;
  uint32_t event = 0;
  state.notice =
      NoticeOf(chip_.functions().FT_GetStatus(chip_.handle(), &state.waiting, &toTransmit, &event));
  if (state.notice != QV_IO_OK) state.waiting = 0;
  return state;
}

/// One look at the queue and, if there is nothing in it and nothing to report, one wait for the event.
/// Between the look and the wait the event's lock is held, so that no signal is lost.
IoFtdi::QueueState IoFtdi::queryUnlessStopped(const std::optional<Time>& deadline, bool failureWasReported,
                                              bool& timedOut) {
  const std::lock_guard lock(*event_);
  if (stop_->requested()) return {};
  // The driver may signal before the bytes are counted, so the count decides, not the event.
  const auto state = query();
  const bool reports = state.notice != QV_IO_OK && !failureWasReported;
  if (state.waiting == 0 && !reports) timedOut = !event_->wait(deadline);
  return state;
}

/// Waits until bytes are there, a period has passed, or the channel is closed; returns how many there are. A
/// failed query is reported once in a period, and again when one has succeeded in between.
uint32_t IoFtdi::awaitBytes() {
  std::optional<Time> deadline;
  if (healthCheck_.count() != 0) deadline = std::chrono::steady_clock::now() + healthCheck_;
  bool failureWasReported = false;
  bool timedOut = false;
  while (!timedOut && !stop_->requested()) {
    const auto state = queryUnlessStopped(deadline, failureWasReported, timedOut);
    if (state.waiting != 0) return state.waiting;
    const bool failed = state.notice != QV_IO_OK;
    if (failed && !failureWasReported) report(state.notice);
    failureWasReported = failed;
  }
  return 0;
}

void IoFtdi::receive(uint32_t waiting, std::span<uint8_t> buffer) {
  while (waiting != 0 && !stop_->requested()) {
    const auto wanted = std::min(waiting, static_cast<uint32_t>(buffer.size()));
    uint32_t got = 0;
    const auto notice = NoticeOf(chip_.functions().FT_Read(chip_.handle(), buffer.data(), wanted, &got));
    if (notice == QV_IO_OK) deliver(buffer.data(), std::min(got, wanted));
    if (stop_->requested()) return;  // stopped in the callback: no other callback may follow
    if (got > wanted && notice == QV_IO_OK) return report(QV_IO_ERROR_RECEIVE_FAILED);
    if (notice != QV_IO_OK) report(notice);
    // The driver still reports bytes; asking again at once would keep a core busy.
    if (notice != QV_IO_OK || got == 0) {
      stop_->wait(kRestAfterFault);
    } else {
      waiting -= got;
    }
  }
}

void IoFtdi::send(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  const std::shared_lock lock(inUse_);
  // The receive thread closes the chip as its last step: a write begins only before the stop.
  Require(static_cast<bool>(chip_), QV_IO_ERROR_TRANSMIT_FAILED, "the receive thread has ended");
  chip_.write(bytes, sendLimit_, &*stop_);
}

std::string IoFtdi::property(std::string_view key) {
  Require(key == "ftdi-id", QV_IO_ERROR_PROPERTY_UNAVAILABLE, "a USB link has no property %", {key});
  const std::shared_lock lock(inUse_);
  const auto id = chip_ ? chip_.id() : std::nullopt;
  Require(id.has_value(), QV_IO_ERROR_NOT_SUPPORTED, "the chip's id cannot be read");
  return std::to_string(*id);
}

}  // namespace qvio
