#include "driver/usbfs_link.h"

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "util/system_call.h"

namespace qvusb {
namespace {

constexpr uint8_t kVendorRequest = 0x40;
constexpr uint8_t kInwards = 0x80;
constexpr uint32_t kControlMs = 1000;
constexpr std::string_view kUsbfs = "usbfs";

/// Returns 0 or an errno.
template <class Argument>
int Ask(int device, unsigned long request, Argument* argument) {
  return cppu::Uninterrupted([&] { return ::ioctl(device, request, argument); }) < 0 ? errno : 0;
}

cppu::UniqueFd OpenNode(const Channel& channel) {
  std::array<char, 64> path{};
  std::snprintf(path.data(), path.size(), "/dev/bus/usb/%03u/%03u", channel.bus, channel.address);
  auto device = cppu::AboveStandardStreams(
      cppu::UniqueFd(cppu::Uninterrupted([&] { return ::open(path.data(), O_RDWR | O_CLOEXEC); })));
  if (!device) throw std::system_error(errno, std::generic_category(), path.data());
  return device;
}

/// A cancelled transfer has not failed.
int ErrorOf(const usbdevfs_urb& request) {
  const int error = -request.status;
  if (error == ESHUTDOWN) return ENODEV;
  return error == ENOENT || error == ECONNRESET ? 0 : error;
}

}  // namespace

UsbfsLink::UsbfsLink(const Channel& channel)
    : interface_(channel.number),
      wasSerialPort_(channel.kernelDriver == "ftdi_sio"),
      device_(OpenNode(channel)) {
  // Not from a program that uses the chip as we do.
  usbdevfs_disconnect_claim claim{interface_, USBDEVFS_DISCONNECT_CLAIM_EXCEPT_DRIVER, {}};
  kUsbfs.copy(claim.driver, sizeof claim.driver - 1);
  if (const int error = Ask(device_.get(), USBDEVFS_DISCONNECT_CLAIM, &claim); error != 0)
    throw std::system_error(error, std::generic_category(), "claim");
}

uint8_t UsbfsLink::endpoint(Transfer::Direction direction) const {
  return static_cast<uint8_t>(direction == Transfer::Direction::In ? kInwards + 2 * interface_ + 1
                                                                   : 2 * interface_ + 2);
}

int UsbfsLink::control(const ControlRequest& request, std::span<uint8_t> answer) {
  usbdevfs_ctrltransfer transfer{};
  transfer.bRequestType = static_cast<uint8_t>(kVendorRequest | (answer.empty() ? 0 : kInwards));
  transfer.bRequest = request.request;
  transfer.wValue = request.value;
  transfer.wIndex = request.index;
  transfer.wLength = static_cast<uint16_t>(answer.size());
  transfer.timeout = kControlMs;
  transfer.data = answer.data();
  const int got = cppu::Uninterrupted([&] { return ::ioctl(device_.get(), USBDEVFS_CONTROL, &transfer); });
  if (got < 0) return errno;
  return static_cast<std::size_t>(got) < answer.size() ? EIO : 0;
}

int UsbfsLink::submit(Transfer& transfer) {
  if (!transfer.request) transfer.request = std::make_shared<usbdevfs_urb>();
  auto& request = *transfer.request;
  std::memset(&request, 0, sizeof request);
  request.type = USBDEVFS_URB_TYPE_BULK;
  request.endpoint = endpoint(transfer.direction);
  request.buffer = transfer.bytes.data();
  request.buffer_length = static_cast<int>(transfer.bytes.size());
  request.usercontext = &transfer;
  const int error = Ask(device_.get(), USBDEVFS_SUBMITURB, &request);
  transfer.isPending = error == 0;
  return error;
}

Transfer* UsbfsLink::reap() {
  usbdevfs_urb* request = nullptr;
  if (Ask(device_.get(), USBDEVFS_REAPURBNDELAY, &request) != 0) return nullptr;
  auto* const transfer = static_cast<Transfer*>(request->usercontext);
  transfer->done = static_cast<std::size_t>(request->actual_length);
  transfer->error = ErrorOf(*request);
  transfer->isPending = false;
  return transfer;
}

void UsbfsLink::clearHalt(Transfer::Direction direction) {
  unsigned number = endpoint(direction);
  Ask(device_.get(), USBDEVFS_CLEAR_HALT, &number);
}

/// A transfer that has ended already is left as it is.
void UsbfsLink::cancel(Transfer& transfer) {
  Ask(device_.get(), USBDEVFS_DISCARDURB, transfer.request.get());
}

/// The descriptor lasts as long as this object: another thread may be about to use it.
void UsbfsLink::release() noexcept {
  if (std::exchange(isReleased_, true)) return;
  // The kernel ends what is pending, and touches our memory no more.
  unsigned number = interface_;
  Ask(device_.get(), USBDEVFS_RELEASEINTERFACE, &number);
  usbdevfs_ioctl attach{static_cast<int>(interface_), static_cast<int>(USBDEVFS_CONNECT), nullptr};
  if (wasSerialPort_) Ask(device_.get(), USBDEVFS_IOCTL, &attach);
}

}  // namespace qvusb
