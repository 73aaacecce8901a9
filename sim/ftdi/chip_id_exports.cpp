#include "sim/ftdi/d2xx_functions.h"

void FTID_Constructor() { QVSIM_CountCall("FTID_Constructor"); }
void FTID_Destructor() { QVSIM_CountCall("FTID_Destructor"); }
uint32_t FTID_GetNumDevices(unsigned long* count) { return QVSIM_ChipCount(count); }
uint32_t FTID_GetChipIDFromHandle(qvio::d2xx::Handle handle, unsigned long* id) {
  return QVSIM_ChipId(handle, id);
}
