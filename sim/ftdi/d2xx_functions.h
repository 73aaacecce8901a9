#pragma once

#include "io/ftdi/d2xx_functions.h"

#pragma GCC visibility push(default)
extern "C" {
// What the chip-id library asks of the other one, which has the state.
void QVSIM_CountCall(const char* function);
Api::FTID_GetNumDevices QVSIM_ChipCount;
Api::FTID_GetChipIDFromHandle QVSIM_ChipId;
}
#pragma GCC visibility pop
