#pragma once

#include "io/ftdi/d2xx_functions.h"

// The functions that the chip-id library calls in the other one, which has the chips.
#pragma GCC visibility push(default)
extern "C" {
void QVUSB_NoteCall(const char* function);
Api::FTID_GetNumDevices QVUSB_ChipCount;
Api::FTID_GetChipIDFromHandle QVUSB_ChipId;
}
#pragma GCC visibility pop
