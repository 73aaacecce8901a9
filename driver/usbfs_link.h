#pragma once

#include "driver/chip.h"
#include "driver/link.h"
#include "util/unique_fd.h"

namespace qvusb {

/// A channel through the kernel's usbfs. Takes the interface from the kernel's serial driver, and gives it
/// back.
class UsbfsLink final : public Link {
 public:
  /// Throws std::system_error: the user may not use the chip, it is gone, or some program uses it.
  explicit UsbfsLink(const Channel& channel);
  ~UsbfsLink() override { release(); }

  int control(const ControlRequest& request, std::span<uint8_t> answer) override;
  int submit(Transfer& transfer) override;
  Transfer* reap() override;
  void clearHalt(Transfer::Direction direction) override;
  void cancel(Transfer& transfer) override;
  [[nodiscard]] pollfd readiness() const override { return {device_.get(), POLLOUT, 0}; }
  void release() noexcept override;
  void abandon() noexcept override { device_.reset(); }

 private:
  [[nodiscard]] uint8_t endpoint(Transfer::Direction direction) const;

  unsigned interface_;
  bool wasSerialPort_;
  bool isReleased_ = false;
  cppu::UniqueFd device_;
};

}  // namespace qvusb
