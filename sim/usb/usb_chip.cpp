#include "sim/usb/usb_chip.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "sim/ftdi/device.h"

namespace qvsim {
namespace {

using qvusb::ControlRequest;
using qvusb::Transfer;

constexpr uint8_t kReset = 0;
constexpr uint8_t kSetSpeed = 3;
constexpr uint16_t kPurgeToTransmit = 2;
constexpr std::size_t kPacket = 64;
constexpr std::size_t kEepromSize = 128;
constexpr std::size_t kTexts = 0x18;
constexpr std::size_t kBacklog = 262144;  ///< not read yet; then the device takes no more
constexpr std::string_view kStatus = "\x01\x60";

/// Ids, and the serial number as the last text with the user area after it.
std::string MakeEeprom(const ChipDescription& about) {
  std::string eeprom(kTexts, '\0');
  eeprom[2] = static_cast<char>(about.vendorId);
  eeprom[3] = static_cast<char>(about.vendorId >> 8U);
  const auto length = 2 * about.serialNumber.size() + 2;
  eeprom[0x12] = static_cast<char>(kTexts | kEepromSize);
  eeprom[0x13] = static_cast<char>(length);
  eeprom.append(length, '\0');
  return eeprom + about.userArea;
}

uint32_t BaudOf(const ControlRequest& request) {
  constexpr std::array<uint32_t, 8> kEighths{0, 4, 2, 1, 3, 5, 6, 7};
  const auto fraction = kEighths.at(request.value >> 14U | (request.index & 1U) << 2U);
  const auto eighths = (request.value & 0x3FFFU) * 8 + fraction;
  const auto clock = (request.index & 2U) != 0 ? 12000000U : 3000000U;
  return eighths == 0 ? clock : clock * 8 / (eighths == 8 ? 12 : eighths);
}

void Forget(std::deque<Transfer*>& queue, const Transfer& transfer) { std::erase(queue, &transfer); }

}  // namespace

UsbChip::UsbChip(ChipDescription about, uint32_t address, Accept accept)
    : about_(std::move(about)),
      address_(address),
      accept_(std::move(accept)),
      eeprom_(MakeEeprom(about_)),
      ready_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

/// The kind has all that the text asks for, whether or not there is such a chip.
qvusb::Channel UsbChip::channel() const {
  qvusb::Channel channel;
  channel.kind = {0, about_.type, 1, true, about_.chipId.has_value(), kEepromSize};
  channel.bus = 1;
  channel.address = address_;
  channel.vendor = static_cast<uint16_t>(about_.vendorId);
  channel.product = static_cast<uint16_t>(about_.productId);
  channel.runsAtHighSpeed = (about_.flags & 2U) != 0;
  channel.description = about_.description;
  channel.serialNumber = about_.serialNumber;
  channel.packetSize = kPacket;
  const std::lock_guard lock(mutex_);
  channel.isOpen = isHeld_ || isOpen_;
  return channel;
}

void UsbChip::unplug() {
  const std::lock_guard lock(mutex_);
  isPlugged_ = false;
  for (auto* const queue : {&reads_, &writes_})
    while (!queue->empty()) end(*queue->front(), ENODEV, 0);
}

void UsbChip::setStalled(bool stalled) {
  const std::lock_guard lock(mutex_);
  isStalled_ = stalled;
  pump();
}

void UsbChip::setHeld(bool held) {
  const std::lock_guard lock(mutex_);
  isHeld_ = held;
}

void UsbChip::send(std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  toHost_ += bytes;
  pump();
}

bool UsbChip::setOpen(bool open) {
  const std::lock_guard lock(mutex_);
  for (auto* const queue : {&reads_, &writes_, &ended_}) queue->clear();
  isOpen_ = open;
  if (open) device_ = DeviceOf(about_)();
  if (open) settings_.clear();
  return isPlugged_;
}

int UsbChip::control(const ControlRequest& request, std::span<uint8_t> answer) {
  const std::lock_guard lock(mutex_);
  if (!isPlugged_) return ENODEV;
  if (answer.empty()) return note(request), 0;
  if (eeprom_.size() > kEepromSize) return EPIPE;
  const auto word = eepromWord(request.index);
  answer[0] = static_cast<uint8_t>(word);
  answer[1] = static_cast<uint8_t>(word >> 8U);
  return 0;
}

uint16_t UsbChip::eepromWord(std::size_t word) const {
  if (word == 0x43) return static_cast<uint16_t>(about_.chipId.value_or(0));
  if (word == 0x44) return static_cast<uint16_t>(about_.chipId.value_or(0) >> 16U);
  const auto byte = [&](std::size_t at) -> uint8_t {
    return at < eeprom_.size() ? static_cast<uint8_t>(eeprom_[at]) : uint8_t{0};
  };
  return static_cast<uint16_t>(byte(2 * word) | byte(2 * word + 1) << 8U);
}

void UsbChip::note(const ControlRequest& request) {
  if (request.request == kReset && request.value != kPurgeToTransmit) toHost_.clear();
  if (request.request == kReset && request.value == 0) return settings_.clear();
  if (request.request == kSetSpeed) settings_["baud"] = std::to_string(BaudOf(request));
  if (request.request != kSetSpeed)
    settings_["r" + std::to_string(request.request)] =
        std::to_string(request.value) + ',' + std::to_string(request.index);
}

std::string UsbChip::settings() const {
  const std::lock_guard lock(mutex_);
  std::string text;
  for (const auto& [name, value] : settings_)
    text.append(text.empty() ? "" : " ").append(name).append("=").append(value);
  return text;
}

int UsbChip::submit(Transfer& transfer) {
  const std::lock_guard lock(mutex_);
  if (!isPlugged_) return ENODEV;
  transfer.isPending = true;
  (transfer.direction == Transfer::Direction::In ? reads_ : writes_).push_back(&transfer);
  pump();
  return 0;
}

Transfer* UsbChip::reap() {
  const std::lock_guard lock(mutex_);
  if (ended_.empty()) {
    eventfd_t ignored = 0;
    ::eventfd_read(ready_.get(), &ignored);
    return nullptr;
  }
  auto* const transfer = ended_.front();
  ended_.pop_front();
  transfer->isPending = false;
  return transfer;
}

void UsbChip::cancel(Transfer& transfer) {
  const std::lock_guard lock(mutex_);
  if (std::ranges::count(writes_, &transfer) + std::ranges::count(reads_, &transfer) != 0)
    end(transfer, 0, 0);
}

void UsbChip::pump() {
  while (!writes_.empty() && !isStalled_ && toHost_.size() < kBacklog) write(*writes_.front());
  while (!reads_.empty() && !toHost_.empty()) fill(*reads_.front());
}

void UsbChip::write(Transfer& transfer) {
  const auto size = accept_(transfer.bytes.size());
  toHost_ += device_->answer({transfer.bytes.data(), size});
  end(transfer, 0, size);
}

void UsbChip::fill(Transfer& transfer) {
  std::size_t at = 0;
  std::size_t taken = 0;
  while (at + kPacket <= transfer.bytes.size() && taken < toHost_.size()) {
    kStatus.copy(&transfer.bytes[at], kStatus.size());
    const auto count = toHost_.copy(&transfer.bytes[at + 2], kPacket - 2, taken);
    taken += count;
    at += count + 2;
  }
  toHost_.erase(0, taken);
  end(transfer, 0, at);
}

void UsbChip::end(Transfer& transfer, int error, std::size_t done) {
  for (auto* const queue : {&reads_, &writes_}) Forget(*queue, transfer);
  transfer.error = error;
  transfer.done = done;
  ended_.push_back(&transfer);
  ::eventfd_write(ready_.get(), 1);
}

}  // namespace qvsim
