// The stand-in's control functions, for the driver with simulated chips.

#include <string>

#include "sim/ftdi/control.h"
#include "sim/usb/usb_bus.h"

using qvsim::TheBus;

int QVSIM_FailCall(const char* function, uint32_t call, uint32_t status) {
  if (!qvsim::CallScript::knows(function)) return 0;
  TheBus().script.fail(function, call, status);
  return 1;
}
uint64_t QVSIM_Calls(const char* function) { return TheBus().script.calls(function); }
uint64_t QVSIM_TotalCalls() { return TheBus().script.calls(); }
void QVSIM_ResetCalls() { TheBus().script.forgetCalls(); }
void QVSIM_LimitWrites(uint32_t writes, uint32_t acceptAtMost) {
  TheBus().script.limitWrites(writes, acceptAtMost);
}
void QVSIM_FailReads(uint32_t status) { TheBus().script.failReads(status); }

int QVSIM_Unplug(const char* serial) { return TheBus().setPlugged(serial, false) ? 1 : 0; }
int QVSIM_Replug(const char* serial) { return TheBus().setPlugged(serial, true) ? 1 : 0; }
int QVSIM_Hold(const char* serial) { return TheBus().setHeld(serial, true) ? 1 : 0; }
int QVSIM_Release(const char* serial) { return TheBus().setHeld(serial, false) ? 1 : 0; }

int QVSIM_Stall(const char* serial, int stalled) {
  const auto chip = TheBus().named(serial);
  if (chip) chip->setStalled(stalled != 0);
  return chip ? 1 : 0;
}
int QVSIM_Inject(const char* serial, const void* bytes, size_t size) {
  const auto chip = TheBus().named(serial);
  if (chip) chip->send({static_cast<const char*>(bytes), size});
  return chip ? 1 : 0;
}
int QVSIM_SetChips(const char* text) {
  TheBus().setChips(qvsim::ReadChips(text));
  return 1;
}
const char* QVSIM_Settings(const char* serial) {
  static thread_local std::string text;
  const auto chip = TheBus().named(serial);
  text = chip ? chip->settings() : "";
  return text.c_str();
}
size_t QVSIM_OpenHandles() { return TheBus().openLinks(); }
void QVSIM_Reset() {
  TheBus().setChips(qvsim::ReadChips(qvsim::kDefaultChips));
  TheBus().script.clear();
}
