#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "driver/chip.h"
#include "driver/link.h"
#include "sim/ftdi/chip_text.h"
#include "sim/responder.h"
#include "util/unique_fd.h"

namespace qvsim {

/// A chip from its plugging in to its unplugging: answers requests, and exchanges packets with the driver.
/// Any thread.
class UsbChip {
 public:
  using Accept = std::function<std::size_t(std::size_t size)>;

  /// @param accept  how many bytes of a write go
  UsbChip(ChipDescription about, uint32_t address, Accept accept);

  [[nodiscard]] qvusb::Channel channel() const;
  [[nodiscard]] const ChipDescription& about() const { return about_; }

  // For tests.
  void unplug();
  void setStalled(bool stalled);
  void setHeld(bool held);  ///< by another process
  void send(std::string_view bytes);

  /// The last request of each kind, as "r9=2,0" with its value and index, but the speed as "baud=9600".
  [[nodiscard]] std::string settings() const;

  // For the link.
  bool setOpen(bool open);  ///< false: it was unplugged
  int control(const qvusb::ControlRequest& request, std::span<uint8_t> answer);
  int submit(qvusb::Transfer& transfer);
  qvusb::Transfer* reap();
  void cancel(qvusb::Transfer& transfer);
  [[nodiscard]] int readyFd() const { return ready_.get(); }

 private:
  // Caller holds the lock.
  void pump();
  void write(qvusb::Transfer& transfer);
  void fill(qvusb::Transfer& transfer);
  void end(qvusb::Transfer& transfer, int error, std::size_t done);
  void note(const qvusb::ControlRequest& request);
  [[nodiscard]] uint16_t eepromWord(std::size_t word) const;

  const ChipDescription about_;
  const uint32_t address_;
  const Accept accept_;
  const std::string eeprom_;
  const cppu::UniqueFd ready_;

  mutable std::mutex mutex_;  ///< guards what follows
  bool isPlugged_ = true;
  bool isOpen_ = false;
  bool isHeld_ = false;
  bool isStalled_ = false;
  std::unique_ptr<Responder> device_;
  std::string toHost_;
  std::deque<qvusb::Transfer*> reads_;
  std::deque<qvusb::Transfer*> writes_;
  std::deque<qvusb::Transfer*> ended_;
  std::map<std::string, std::string> settings_;
};

}  // namespace qvsim
