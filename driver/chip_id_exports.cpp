#include "driver/chip_id.h"

void FTID_Constructor() { QVUSB_NoteCall("FTID_Constructor"); }
void FTID_Destructor() { QVUSB_NoteCall("FTID_Destructor"); }
uint32_t FTID_GetNumDevices(unsigned long* count) { return QVUSB_ChipCount(count); }
uint32_t FTID_GetChipIDFromHandle(qvio::d2xx::Handle handle, unsigned long* id) {
  return QVUSB_ChipId(handle, id);
}
