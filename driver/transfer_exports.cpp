// Bytes, and the settings of the line.

#include <algorithm>
#include <string_view>

#include "driver/call.h"
#include "io/ftdi/d2xx_functions.h"

using namespace qvusb;  // NOLINT(google-build-using-namespace): the functions are in none
using qvio::d2xx::Handle;

namespace {

/// Passes a valid setting on to the chip.
template <class Action>
uint32_t Set(Handle handle, std::string_view function, bool isValid, Action action) {
  return CallOn(handle, function, [&](Port& port) {
    if (!isValid) return status::kInvalidParameter;
    action(port);
    return status::kOk;
  });
}

}  // namespace

uint32_t FT_GetStatus(Handle handle, uint32_t* received, uint32_t* toTransmit, uint32_t* event) {
  return CallOn(handle, "FT_GetStatus", [&](Port& port) {
    if (received == nullptr || toTransmit == nullptr || event == nullptr) return status::kInvalidParameter;
    return port.getStatus(*received, *toTransmit, *event);
  });
}

uint32_t FT_Read(Handle handle, void* buffer, uint32_t size, uint32_t* read) {
  return CallOn(handle, "FT_Read", [&](Port& port) {
    if (read == nullptr || (buffer == nullptr && size > 0)) return status::kInvalidParameter;
    *read = 0;
    return port.read(static_cast<char*>(buffer), size, *read);
  });
}

uint32_t FT_Write(Handle handle, void* buffer, uint32_t size, uint32_t* written) {
  return CallOn(handle, "FT_Write", [&](Port& port) {
    if (written == nullptr || (buffer == nullptr && size > 0)) return status::kInvalidParameter;
    *written = 0;
    if (size == 0) return status::kOk;
    return port.write({static_cast<const char*>(buffer), size}, *written);
  });
}

uint32_t FT_Purge(Handle handle, uint32_t queues) {
  const bool isValid = (queues & ~qvio::d2xx::kPurgeBothQueues) == 0;
  return Set(handle, "FT_Purge", isValid, [&](Port& port) {
    port.purge((queues & qvio::d2xx::kPurgeReceived) != 0, (queues & qvio::d2xx::kPurgeToTransmit) != 0);
  });
}

uint32_t FT_SetBaudRate(Handle handle, uint32_t rate) {
  return CallOn(handle, "FT_SetBaudRate", [&](Port& port) { return port.setSpeed(rate); });
}

uint32_t FT_SetDataCharacteristics(Handle handle, uint8_t bits, uint8_t stopBits, uint8_t parity) {
  const bool isValid =
      (bits == 7 || bits == 8) && (stopBits == 0 || stopBits == 2) && parity <= qvio::d2xx::kLargestParity;
  return Set(handle, "FT_SetDataCharacteristics", isValid,
             [&](Port& port) { port.control().setData(bits, stopBits, parity); });
}

uint32_t FT_SetFlowControl(Handle handle, uint16_t flow, uint8_t xon, uint8_t xoff) {
  return Set(handle, "FT_SetFlowControl", std::ranges::count(qvio::d2xx::kFlows, flow) > 0,
             [&](Port& port) { port.control().setFlowControl(flow, xon, xoff); });
}

uint32_t FT_SetTimeouts(Handle handle, uint32_t readMs, uint32_t writeMs) {
  return Set(handle, "FT_SetTimeouts", true, [&](Port& port) { port.setTimeouts(readMs, writeMs); });
}

uint32_t FT_SetLatencyTimer(Handle handle, uint8_t ms) {
  return Set(handle, "FT_SetLatencyTimer", ms != 0, [&](Port& port) { port.control().setLatency(ms); });
}

uint32_t FT_SetBitMode(Handle handle, uint8_t mask, uint8_t mode) {
  return Set(handle, "FT_SetBitMode", true, [&](Port& port) { port.control().setBitMode(mask, mode); });
}

/// The size of a write follows from the line.
uint32_t FT_SetUSBParameters(Handle handle, uint32_t inSize, uint32_t /*outSize*/) {
  return Set(handle, "FT_SetUSBParameters", inSize != 0, [&](Port& port) { port.setTransferSize(inSize); });
}

uint32_t FT_SetEventNotification(Handle handle, uint32_t mask, void* eventHandle) {
  return Set(handle, "FT_SetEventNotification", true,
             [&](Port& port) { port.setEvent(mask, static_cast<qvio::d2xx::EventHandle*>(eventHandle)); });
}
