#pragma once

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "sim/ftdi/call_script.h"
#include "sim/usb/usb_chip.h"

namespace qvsim {

/// The simulated chips, which the driver finds instead of the machine's. Any thread.
class UsbBus {
 public:
  using ChipPtr = std::shared_ptr<UsbChip>;

  CallScript script;

  void setChips(const std::vector<ChipDescription>& chips);
  [[nodiscard]] std::vector<ChipPtr> chips() const;

  /// The first chip with the serial number; null: there is none.
  [[nodiscard]] ChipPtr named(std::string_view serial) const;

  /// Unplugs a chip; plugs it in, as a new one.
  bool setPlugged(std::string_view serial, bool plugged);
  bool setHeld(std::string_view serial, bool held) const;

  [[nodiscard]] std::size_t openLinks() const;
  void changeOpenLinks(int by);

 private:
  struct Slot {
    ChipPtr chip;
    bool isPlugged = true;
  };

  ChipPtr make(const ChipDescription& about);

  mutable std::mutex mutex_;  ///< guards what follows; taken before the lock of a chip
  std::vector<Slot> slots_;
  uint32_t lastAddress_ = 0;
  int openLinks_ = 0;
};

/// Never destroyed.
UsbBus& TheBus();

}  // namespace qvsim
