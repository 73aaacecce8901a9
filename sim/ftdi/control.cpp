#include "sim/ftdi/control.h"

#include <cstdio>
#include <string>

#include "sim/ftdi/calls.h"
#include "sim/ftdi/chip_text.h"

using namespace qvsim;  // NOLINT(google-build-using-namespace): the functions are in none

namespace {

/// 1 when the action succeeds; 0 also when it throws, since C code calls us.
template <class Action>
int Succeeds(Action action) noexcept {
  try {
    return action() ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

}  // namespace

int QVSIM_FailCall(const char* function, uint32_t call, uint32_t status) {
  return Succeeds([&] {
    if (!CallScript::knows(function)) return false;
    TheCallScript().fail(function, call, status);
    return true;
  });
}

uint64_t QVSIM_Calls(const char* function) {
  return CallScript::knows(function) ? TheCallScript().calls(function) : 0;
}
uint64_t QVSIM_TotalCalls() { return TheCallScript().calls(); }
void QVSIM_ResetCalls() { TheCallScript().forgetCalls(); }

void QVSIM_LimitWrites(uint32_t writes, uint32_t acceptAtMost) {
  TheCallScript().limitWrites(writes, acceptAtMost);
}
void QVSIM_OverReportWrites(uint32_t writes, uint32_t more) {
  TheCallScript().exaggerateWrites(writes, more);
}
void QVSIM_OverReportReads(uint32_t reads, uint32_t more) { TheCallScript().exaggerateReads(reads, more); }
void QVSIM_FailReads(uint32_t status) { TheCallScript().failReads(status); }

int QVSIM_Unplug(const char* serial) {
  return Succeeds([&] { return TheDriver().setPlugged(serial, false); });
}
int QVSIM_Replug(const char* serial) {
  return Succeeds([&] { return TheDriver().setPlugged(serial, true); });
}
int QVSIM_Hold(const char* serial) {
  return Succeeds([&] { return TheDriver().setHeld(serial, true); });
}
int QVSIM_Release(const char* serial) {
  return Succeeds([&] { return TheDriver().setHeld(serial, false); });
}
int QVSIM_Stall(const char* serial, int stalled) {
  return Succeeds([&] { return TheDriver().setStalled(serial, stalled != 0); });
}

int QVSIM_Inject(const char* serial, const void* bytes, size_t size) {
  return Succeeds([&] { return TheDriver().inject(serial, {static_cast<const char*>(bytes), size}); });
}

int QVSIM_SetChips(const char* text) {
  return Succeeds([&] {
    try {
      TheDriver().setChips(ReadChips(text));
    } catch (const BadChipText& failure) {
      std::fprintf(stderr, "libftd2xx: QVSIM_SetChips: %s\n", failure.what());
      return false;
    }
    return true;
  });
}

const char* QVSIM_Settings(const char* serial) {
  static thread_local std::string text;
  const auto found = Succeeds([&] {
    text = TheDriver().settings(serial);
    return true;
  });
  return found == 1 ? text.c_str() : "";
}

size_t QVSIM_OpenHandles() { return TheDriver().openHandles(); }

void QVSIM_Reset() {
  Succeeds([] {
    TheDriver().reset();
    TheCallScript().clear();
    return true;
  });
}
