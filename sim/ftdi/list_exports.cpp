// Listing, opening, closing, and what is stored in a chip.

#include <algorithm>

#include "sim/ftdi/calls.h"
#include "sim/ftdi/d2xx_functions.h"
#include "util/never_destroyed.h"

namespace qvsim {
namespace {

constexpr uint32_t kEepromWords = 128;

/// The words in which every chip has its USB ids.
uint16_t EepromWord(const ChipDescription& chip, uint32_t offset) {
  if (offset == 1) return static_cast<uint16_t>(chip.vendorId);
  if (offset == 2) return static_cast<uint16_t>(chip.productId);
  return 0xffff;
}

}  // namespace

Driver& TheDriver() {
  static cppu::NeverDestroyed<Driver> driver;
  return driver.value;
}

CallScript& TheCallScript() {
  static cppu::NeverDestroyed<CallScript> script;
  return script.value;
}

}  // namespace qvsim

using namespace qvsim;  // NOLINT(google-build-using-namespace): the functions are in none
using qvio::d2xx::DeviceNode;
using qvio::d2xx::Handle;

uint32_t FT_CreateDeviceInfoList(uint32_t* count) {
  return Call("FT_CreateDeviceInfoList", [&] {
    return count == nullptr ? status::kInvalidParameter : TheDriver().takeSnapshot(*count);
  });
}

uint32_t FT_GetDeviceInfoList(DeviceNode* nodes, uint32_t* count) {
  return Call("FT_GetDeviceInfoList", [&] {
    if (nodes == nullptr || count == nullptr) return status::kInvalidParameter;
    return TheDriver().nodes(nodes, *count);
  });
}

uint32_t FT_Open(int index, Handle* handle) {
  return Call("FT_Open", [&] {
    return handle == nullptr ? status::kInvalidParameter : TheDriver().open(index, *handle);
  });
}

uint32_t FT_OpenEx(void* argument, uint32_t flags, Handle* handle) {
  return Call("FT_OpenEx", [&] {
    if (argument == nullptr || handle == nullptr) return status::kInvalidParameter;
    if (flags == qvio::d2xx::kOpenBySerialNumber) {
      const auto wanted = qvio::d2xx::FieldText(argument, sizeof(DeviceNode::serialNumber));
      return TheDriver().open([&](const auto& chip) { return chip.serialNumber == wanted; }, *handle);
    }
    if (flags != qvio::d2xx::kOpenByDescription) return status::kInvalidParameter;
    const auto wanted = qvio::d2xx::FieldText(argument, sizeof(DeviceNode::description));
    return TheDriver().open([&](const auto& chip) { return chip.description == wanted; }, *handle);
  });
}

/// A chip that was unplugged is closed all the same.
uint32_t FT_Close(Handle handle) {
  return Call("FT_Close", [&] { return TheDriver().close(handle); });
}

uint32_t FT_ReadEE(Handle handle, uint32_t wordOffset, uint16_t* value) {
  return CallOn(handle, "FT_ReadEE", [&](const Chip& chip, const Port&) {
    if (value == nullptr || wordOffset >= kEepromWords) return status::kInvalidParameter;
    *value = EepromWord(chip.description, wordOffset);
    return status::kOk;
  });
}

/// The caller's structure is left as it is: which of its many layouts it has is not known here.
uint32_t FT_EE_Read(Handle handle, void* programData) {
  return CallOn(handle, "FT_EE_Read", [&](const Chip&, const Port&) {
    return programData == nullptr ? status::kInvalidParameter : status::kOk;
  });
}

uint32_t FT_EE_UASize(Handle handle, uint32_t* size) {
  return CallOn(handle, "FT_EE_UASize", [&](const Chip& chip, const Port&) {
    if (size == nullptr) return status::kInvalidParameter;
    *size = chip.userArea.with([](const auto& area) { return static_cast<uint32_t>(area.size()); });
    return status::kOk;
  });
}

uint32_t FT_EE_UARead(Handle handle, uint8_t* data, uint32_t size, uint32_t* read) {
  return CallOn(handle, "FT_EE_UARead", [&](const Chip& chip, const Port&) {
    if (data == nullptr || read == nullptr) return status::kInvalidParameter;
    return chip.userArea.with([&](const auto& area) {
      *read = static_cast<uint32_t>(area.copy(reinterpret_cast<char*>(data), size));
      return status::kOk;
    });
  });
}

uint32_t FT_EE_UAWrite(Handle handle, uint8_t* data, uint32_t size) {
  return CallOn(handle, "FT_EE_UAWrite", [&](Chip& chip, const Port&) {
    return chip.userArea.with([&](auto& area) {
      if (data == nullptr || size > area.size()) return status::kInvalidParameter;
      std::copy_n(data, size, area.begin());
      return status::kOk;
    });
  });
}

void QVSIM_CountCall(const char* function) {
  Call(function, [] { return status::kOk; });
}

uint32_t QVSIM_ChipCount(unsigned long* count) {
  return Call("FTID_GetNumDevices", [&] {
    if (count == nullptr) return status::kInvalidParameter;
    *count = TheDriver().chipCount();
    return status::kOk;
  });
}

uint32_t QVSIM_ChipId(Handle handle, unsigned long* id) {
  return CallOn(handle, "FTID_GetChipIDFromHandle", [&](const Chip& chip, const Port&) {
    if (id == nullptr) return status::kInvalidParameter;
    if (!chip.description.chipId) return status::kOtherError;
    *id = *chip.description.chipId;
    return status::kOk;
  });
}
