#pragma once

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "driver/fake_chip.h"
#include "sim/ftdi/call_script.h"

namespace qvtest {

/// What is plugged in, instead of the machine's chips. Any thread.
class FakeMachine {
 public:
  using ChipPtr = std::shared_ptr<FakeChip>;

  qvsim::CallScript script;

  void setChips(const std::vector<qvsim::ChipDescription>& chips);
  [[nodiscard]] std::vector<ChipPtr> chips() const;

  /// The first chip with the serial number; null: there is none.
  [[nodiscard]] ChipPtr named(std::string_view serial) const;

  /// Unplugs a chip; plugs it in, as a new one.
  bool setPlugged(std::string_view serial, bool plugged);
  bool setHeld(std::string_view serial, bool held);

  [[nodiscard]] std::size_t openLinks() const;
  void changeOpenLinks(int by);

 private:
  struct Slot {
    ChipPtr chip;
    bool isPlugged = true;
  };

  ChipPtr make(const qvsim::ChipDescription& about);

  mutable std::mutex mutex_;  ///< guards what follows; taken before the lock of a chip
  std::vector<Slot> slots_;
  uint32_t lastAddress_ = 0;
  int openLinks_ = 0;
};

/// Never destroyed.
FakeMachine& TheMachine();

}  // namespace qvtest
