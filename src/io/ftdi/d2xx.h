#pragma once

#include <pthread.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// What we use of FTDI's D2XX driver and chip-id library, as they are published for Linux. Functions with C
/// linkage; most return a status.
namespace qvio::d2xx {

using Handle = void*;

/// What most functions return.
namespace status {
inline constexpr uint32_t kOk = 0;
inline constexpr uint32_t kInvalidHandle = 1;
inline constexpr uint32_t kDeviceNotFound = 2;
inline constexpr uint32_t kDeviceNotOpened = 3;  ///< it is open already, or the user may not use it
inline constexpr uint32_t kIoError = 4;          ///< also: the chip is gone
inline constexpr uint32_t kInvalidParameter = 6;
inline constexpr uint32_t kInvalidBaudRate = 7;
inline constexpr uint32_t kNotSupported = 17;
inline constexpr uint32_t kOtherError = 18;
}  // namespace status

/// One chip of the driver's list.
struct DeviceNode {
  uint32_t flags;  ///< DeviceFlag
  uint32_t type;
  uint32_t id;  ///< USB vendor id in the high 16 bits, product id in the low ones
  uint32_t locationId;
  char serialNumber[16];  ///< ends with a zero, or with the array
  char description[64];   ///< likewise
  Handle handle;
};

/// A text that ends with a zero, or with its field.
inline std::string_view FieldText(const void* field, std::size_t size) {
  const auto* const begin = static_cast<const char*>(field);
  return {begin, ::strnlen(begin, size)};
}

enum DeviceFlag : uint32_t { OpenSomewhere = 1, HighSpeed = 2 };
inline constexpr uint32_t kHighSpeedDualChannel = 6;  ///< device type

/// What the driver signals when bytes have arrived.
struct EventHandle {
  pthread_cond_t condition;
  pthread_mutex_t mutex;
  int value;
};

inline constexpr uint32_t kOpenBySerialNumber = 1;
inline constexpr uint32_t kOpenByDescription = 2;
inline constexpr uint32_t kPurgeReceived = 1;
inline constexpr uint32_t kPurgeToTransmit = 2;
inline constexpr uint32_t kPurgeBothQueues = kPurgeReceived | kPurgeToTransmit;
inline constexpr uint32_t kEventReceived = 1;
inline constexpr uint16_t kFlowNone = 0;
inline constexpr uint16_t kFlowRtsCts = 0x100;
inline constexpr uint16_t kFlowDtrDsr = 0x200;
inline constexpr uint16_t kFlowXonXoff = 0x400;
inline constexpr std::array kFlows{kFlowNone, kFlowRtsCts, kFlowDtrDsr, kFlowXonXoff};
inline constexpr uint32_t kLargestParity = 4;
inline constexpr uint8_t kBitModeReset = 0;
inline constexpr uint8_t kBitModeSynchronousFifo = 0x40;

/// The functions' types. Buffers that the driver only reads are not const in its interface.
struct Api {
  using FTID_Constructor = void();
  using FTID_Destructor = void();
  using FT_CreateDeviceInfoList = uint32_t(uint32_t* count);
  using FT_GetDeviceInfoList = uint32_t(DeviceNode* nodes, uint32_t* count);
  using FT_Open = uint32_t(int index, Handle* handle);
  using FT_OpenEx = uint32_t(void* argument, uint32_t flags, Handle* handle);
  using FT_Close = uint32_t(Handle handle);
  using FT_GetStatus = uint32_t(Handle handle, uint32_t* received, uint32_t* toTransmit, uint32_t* event);
  using FT_Read = uint32_t(Handle handle, void* buffer, uint32_t size, uint32_t* read);
  using FT_Write = uint32_t(Handle handle, void* buffer, uint32_t size, uint32_t* written);
  using FT_Purge = uint32_t(Handle handle, uint32_t queues);
  using FT_SetBaudRate = uint32_t(Handle handle, uint32_t rate);
  using FT_SetDataCharacteristics = uint32_t(Handle handle, uint8_t bits, uint8_t stopBits, uint8_t parity);
  using FT_SetFlowControl = uint32_t(Handle handle, uint16_t flow, uint8_t xon, uint8_t xoff);
  using FT_SetTimeouts = uint32_t(Handle handle, uint32_t readMs, uint32_t writeMs);
  using FT_SetLatencyTimer = uint32_t(Handle handle, uint8_t ms);
  using FT_SetBitMode = uint32_t(Handle handle, uint8_t mask, uint8_t mode);
  using FT_SetUSBParameters = uint32_t(Handle handle, uint32_t inSize, uint32_t outSize);
  using FT_SetEventNotification = uint32_t(Handle handle, uint32_t mask, void* eventHandle);
  using FT_ReadEE = uint32_t(Handle handle, uint32_t wordOffset, uint16_t* value);
  using FT_EE_Read = uint32_t(Handle handle, void* programData);
  using FT_EE_UASize = uint32_t(Handle handle, uint32_t* size);
  using FT_EE_UARead = uint32_t(Handle handle, uint8_t* data, uint32_t size, uint32_t* read);
  using FT_EE_UAWrite = uint32_t(Handle handle, uint8_t* data, uint32_t size);
  /// The chip-id library's integers are unsigned long in some editions and 32 bits wide in others: zeroed
  /// 64-bit storage, of which the low 32 bits count, is right for both.
  using FTID_GetNumDevices = uint32_t(unsigned long* count);
  using FTID_GetChipIDFromHandle = uint32_t(Handle handle, unsigned long* id);
};

}  // namespace qvio::d2xx
