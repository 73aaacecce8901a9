#pragma once

#include <gtest/gtest.h>

#include <string>

#include "sim/ftdi/stand_in.h"
#include "support/channel.h"
#include "support/process.h"
#include "support/recorded_channel.h"
#include "usb/chip_texts.h"

namespace qvtest {

using qvsim::StandIn;

/// Simulated chips for one test.
class Usb : public testing::Test {
 protected:
  Usb() { plugIn(kChips); }
  ~Usb() override {
    EXPECT_EQ(openHandles(), 0U) << "a chip was left open";
    EXPECT_TRUE(Eventually([] { return ReceiveThreads() == 0; }));
  }

  /// Starts afresh with these chips.
  void plugIn(const std::string& chips) const {
    find<decltype(QVSIM_Reset)>("QVSIM_Reset")();
    EXPECT_EQ(find<decltype(QVSIM_SetChips)>("QVSIM_SetChips")(chips.c_str()), 1);
  }
  template <class Function>
  [[nodiscard]] Function* find(const char* name) const {
    return standIn_.find<Function>(name);
  }
  void failCall(const char* function, uint32_t call, uint32_t status) const {
    EXPECT_EQ(find<decltype(QVSIM_FailCall)>("QVSIM_FailCall")(function, call, status), 1) << function;
  }
  [[nodiscard]] uint64_t calls(const char* function) const {
    return find<decltype(QVSIM_Calls)>("QVSIM_Calls")(function);
  }
  [[nodiscard]] uint64_t totalCalls() const { return find<decltype(QVSIM_TotalCalls)>("QVSIM_TotalCalls")(); }
  void unplug(const char* serial) const {
    EXPECT_EQ(find<decltype(QVSIM_Unplug)>("QVSIM_Unplug")(serial), 1);
  }
  [[nodiscard]] std::string settings(const char* serial) const {
    return find<decltype(QVSIM_Settings)>("QVSIM_Settings")(serial);
  }
  [[nodiscard]] std::size_t openHandles() const {
    return find<decltype(QVSIM_OpenHandles)>("QVSIM_OpenHandles")();
  }

 private:
  StandIn standIn_;
};

}  // namespace qvtest
