// Listing, opening, closing, and what is stored in a chip.

#include <algorithm>

#include "driver/call.h"
#include "driver/chip_id.h"
#include "driver/system.h"
#include "driver/user_area.h"
#include "io/ftdi/d2xx_functions.h"

using namespace qvusb;  // NOLINT(google-build-using-namespace): the functions are in none
using qvio::d2xx::DeviceNode;
using qvio::d2xx::Handle;

namespace {

constexpr std::size_t kLargestWord = 0xFF;
// Where the chips that have a number keep it.
constexpr std::size_t kChipIdLow = 0x43;
constexpr std::size_t kChipIdHigh = 0x44;

UserArea UserAreaOf(const Port& port) {
  return FindUserArea(port.channel().kind.eepromSize,
                      [&](std::size_t word) { return port.control().readEeprom(word); });
}

}  // namespace

uint32_t FT_CreateDeviceInfoList(uint32_t* count) {
  return Call("FT_CreateDeviceInfoList",
              [&] { return count == nullptr ? status::kInvalidParameter : Driver::the().makeList(*count); });
}

uint32_t FT_GetDeviceInfoList(DeviceNode* nodes, uint32_t* count) {
  return Call("FT_GetDeviceInfoList", [&] {
    if (nodes == nullptr || count == nullptr) return status::kInvalidParameter;
    return Driver::the().nodes(nodes, *count);
  });
}

uint32_t FT_Open(int index, Handle* handle) {
  return Call("FT_Open", [&] {
    return handle == nullptr ? status::kInvalidParameter : Driver::the().open(index, *handle);
  });
}

uint32_t FT_OpenEx(void* argument, uint32_t flags, Handle* handle) {
  return Call("FT_OpenEx", [&] {
    if (argument == nullptr || handle == nullptr) return status::kInvalidParameter;
    const bool bySerialNumber = flags == qvio::d2xx::kOpenBySerialNumber;
    if (!bySerialNumber && flags != qvio::d2xx::kOpenByDescription) return status::kInvalidParameter;
    const auto text = bySerialNumber ? &Channel::serialNumber : &Channel::description;
    const auto size = bySerialNumber ? sizeof(DeviceNode::serialNumber) : sizeof(DeviceNode::description);
    const auto wanted = qvio::d2xx::FieldText(argument, size);
    const auto isWanted = [&](const Channel& channel) { return (channel.*text).substr(0, size) == wanted; };
    return Driver::the().open(isWanted, *handle);
  });
}

/// A chip that was unplugged is closed all the same.
uint32_t FT_Close(Handle handle) {
  return Call("FT_Close", [&] { return Driver::the().close(handle); });
}

uint32_t FT_ReadEE(Handle handle, uint32_t wordOffset, uint16_t* value) {
  return CallOn(handle, "FT_ReadEE", [&](const Port& port) {
    if (value == nullptr || wordOffset > kLargestWord) return status::kInvalidParameter;
    *value = port.control().readEeprom(wordOffset);
    return status::kOk;
  });
}

/// Which of its many layouts the caller's structure has is not known here.
uint32_t FT_EE_Read(Handle handle, void* /*programData*/) {
  return CallOn(handle, "FT_EE_Read", [](const Port&) { return status::kNotSupported; });
}

uint32_t FT_EE_UASize(Handle handle, uint32_t* size) {
  return CallOn(handle, "FT_EE_UASize", [&](const Port& port) {
    if (size == nullptr) return status::kInvalidParameter;
    *size = static_cast<uint32_t>(UserAreaOf(port).size);
    return status::kOk;
  });
}

uint32_t FT_EE_UARead(Handle handle, uint8_t* data, uint32_t size, uint32_t* read) {
  return CallOn(handle, "FT_EE_UARead", [&](const Port& port) {
    if (data == nullptr || read == nullptr) return status::kInvalidParameter;
    *read = 0;
    if (size == 0) return status::kOk;
    const auto area = UserAreaOf(port);
    const auto end = static_cast<uint32_t>(std::min<std::size_t>(size, area.size));
    while (*read < end) {
      const auto word = port.control().readEeprom((area.begin + *read) / 2);
      data[(*read)++] = static_cast<uint8_t>(word);
      if (*read < end) data[(*read)++] = static_cast<uint8_t>(word >> 8U);
    }
    return status::kOk;
  });
}

/// A chip whose EEPROM has a wrong checksum forgets the name of its product: nothing is written before that
/// was tried on every type.
uint32_t FT_EE_UAWrite(Handle handle, uint8_t* /*data*/, uint32_t /*size*/) {
  return CallOn(handle, "FT_EE_UAWrite", [](const Port&) { return status::kNotSupported; });
}

void QVUSB_NoteCall(const char* function) {
  Call(function, [] { return status::kOk; });
}

uint32_t QVUSB_ChipCount(unsigned long* count) {
  return Call("FTID_GetNumDevices", [&] {
    if (count == nullptr) return status::kInvalidParameter;
    *count = PluggedChannels().size();
    return status::kOk;
  });
}

uint32_t QVUSB_ChipId(Handle handle, unsigned long* id) {
  return CallOn(handle, "FTID_GetChipIDFromHandle", [&](const Port& port) {
    if (id == nullptr) return status::kInvalidParameter;
    if (!port.channel().kind.hasChipId) return status::kNotSupported;
    const auto high = port.control().readEeprom(kChipIdHigh);
    *id = static_cast<unsigned long>(high) << 16U | port.control().readEeprom(kChipIdLow);
    return status::kOk;
  });
}
