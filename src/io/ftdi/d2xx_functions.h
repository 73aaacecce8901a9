#pragma once

#include "io/ftdi/d2xx.h"

// The functions of both libraries, with the types that the library relies on: a definition that differs does
// not compile.
#pragma GCC visibility push(default)
extern "C" {
using qvio::d2xx::Api;

Api::FT_CreateDeviceInfoList FT_CreateDeviceInfoList;
Api::FT_GetDeviceInfoList FT_GetDeviceInfoList;
Api::FT_Open FT_Open;
Api::FT_OpenEx FT_OpenEx;
Api::FT_Close FT_Close;
Api::FT_GetStatus FT_GetStatus;
Api::FT_Read FT_Read;
Api::FT_Write FT_Write;
Api::FT_Purge FT_Purge;
Api::FT_SetBaudRate FT_SetBaudRate;
Api::FT_SetDataCharacteristics FT_SetDataCharacteristics;
Api::FT_SetFlowControl FT_SetFlowControl;
Api::FT_SetTimeouts FT_SetTimeouts;
Api::FT_SetLatencyTimer FT_SetLatencyTimer;
Api::FT_SetBitMode FT_SetBitMode;
Api::FT_SetUSBParameters FT_SetUSBParameters;
Api::FT_SetEventNotification FT_SetEventNotification;
Api::FT_ReadEE FT_ReadEE;
Api::FT_EE_Read FT_EE_Read;
Api::FT_EE_UASize FT_EE_UASize;
Api::FT_EE_UARead FT_EE_UARead;
Api::FT_EE_UAWrite FT_EE_UAWrite;

Api::FTID_Constructor FTID_Constructor;
Api::FTID_Destructor FTID_Destructor;
Api::FTID_GetNumDevices FTID_GetNumDevices;
Api::FTID_GetChipIDFromHandle FTID_GetChipIDFromHandle;
}
#pragma GCC visibility pop
