#include "sim/usb/usb_bus.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "driver/system.h"
#include "util/never_destroyed.h"

namespace qvsim {
namespace {

using qvusb::Transfer;

class BusLink final : public qvusb::Link {
 public:
  explicit BusLink(std::shared_ptr<UsbChip> chip) : chip_(std::move(chip)) {
    TheBus().changeOpenLinks(1);
    if (chip_->setOpen(true)) return;
    release();
    throw std::system_error(ENODEV, std::generic_category());
  }
  ~BusLink() override { release(); }

  int control(const qvusb::ControlRequest& request, std::span<uint8_t> answer) override {
    return chip_->control(request, answer);
  }
  int submit(Transfer& transfer) override { return chip_->submit(transfer); }
  Transfer* reap() override { return chip_->reap(); }
  void clearHalt(Transfer::Direction /*direction*/) override {}
  void cancel(Transfer& transfer) override { chip_->cancel(transfer); }
  [[nodiscard]] pollfd readiness() const override { return {chip_->readyFd(), POLLIN, 0}; }
  void release() noexcept override {
    if (std::exchange(isReleased_, true)) return;
    chip_->setOpen(false);
    TheBus().changeOpenLinks(-1);
  }
  void abandon() noexcept override {}

 private:
  const std::shared_ptr<UsbChip> chip_;
  bool isReleased_ = false;
};

}  // namespace

UsbBus& TheBus() {
  static cppu::NeverDestroyed<UsbBus> bus;
  return bus.value;
}

UsbBus::ChipPtr UsbBus::make(const ChipDescription& about) {
  auto chip = std::make_shared<UsbChip>(about, ++lastAddress_, [this](std::size_t size) {
    return std::min<std::size_t>(size, script.nextWrite().acceptAtMost);
  });
  chip->setHeld(about.held);
  return chip;
}

void UsbBus::setChips(const std::vector<ChipDescription>& chips) {
  const std::lock_guard lock(mutex_);
  for (const auto& slot : slots_) slot.chip->unplug();
  slots_.clear();
  for (const auto& about : chips) slots_.push_back({make(about), true});
}

std::vector<UsbBus::ChipPtr> UsbBus::chips() const {
  const std::lock_guard lock(mutex_);
  std::vector<ChipPtr> chips;
  for (const auto& slot : slots_)
    if (slot.isPlugged) chips.push_back(slot.chip);
  return chips;
}

UsbBus::ChipPtr UsbBus::named(std::string_view serial) const {
  const std::lock_guard lock(mutex_);
  for (const auto& slot : slots_)
    if (slot.chip->about().serialNumber == serial) return slot.chip;
  return nullptr;
}

bool UsbBus::setPlugged(std::string_view serial, bool plugged) {
  const auto chip = named(serial);
  if (!chip) return false;
  const std::lock_guard lock(mutex_);
  const auto slot = std::ranges::find(slots_, chip, &Slot::chip);
  if (plugged && !slot->isPlugged) slot->chip = make(chip->about());
  if (!plugged) chip->unplug();
  slot->isPlugged = plugged;
  return true;
}

bool UsbBus::setHeld(std::string_view serial, bool held) const {
  const auto chip = named(serial);
  if (chip) chip->setHeld(held);
  return chip != nullptr;
}

std::size_t UsbBus::openLinks() const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(openLinks_);
}

void UsbBus::changeOpenLinks(int by) {
  const std::lock_guard lock(mutex_);
  openLinks_ += by;
}

}  // namespace qvsim

namespace qvusb {

std::vector<Channel> PluggedChannels() {
  std::vector<Channel> channels;
  for (const auto& chip : qvsim::TheBus().chips()) channels.push_back(chip->channel());
  return channels;
}

std::unique_ptr<Link> OpenLink(const Channel& channel) {
  for (auto& chip : qvsim::TheBus().chips())
    if (IsSame(chip->channel(), channel)) return std::make_unique<qvsim::BusLink>(chip);
  throw std::system_error(ENODEV, std::generic_category());
}

}  // namespace qvusb
