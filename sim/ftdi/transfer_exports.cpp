// Bytes, and the settings of the line.

#include <algorithm>
#include <string_view>

#include "sim/ftdi/calls.h"
#include "sim/ftdi/d2xx_functions.h"

using namespace qvsim;  // NOLINT(google-build-using-namespace): the functions are in none
using qvio::d2xx::Handle;

namespace {

constexpr uint32_t kLargestBaudRate = 12'000'000;

/// A setting that is remembered when it is valid, and changes nothing.
uint32_t Note(Handle handle, const char* function, bool isValid, const char* name,
              std::initializer_list<uint32_t> values) {
  return CallOn(handle, function, [&](const Chip&, Port& port) {
    if (!isValid) return status::kInvalidParameter;
    port.note(name, values);
    return status::kOk;
  });
}

}  // namespace

uint32_t FT_GetStatus(Handle handle, uint32_t* received, uint32_t* toTransmit, uint32_t* event) {
  return CallOn(handle, "FT_GetStatus", [&](const Chip&, Port& port) {
    if (received == nullptr || toTransmit == nullptr || event == nullptr) return status::kInvalidParameter;
    port.getStatus(*received, *toTransmit, *event);
    if (TheCallScript().promisesBytes()) *received = std::max(*received, 1U);
    return status::kOk;
  });
}

uint32_t FT_Read(Handle handle, void* buffer, uint32_t size, uint32_t* read) {
  return CallOn(handle, "FT_Read", [&](const Chip&, Port& port) {
    if (read == nullptr || (buffer == nullptr && size > 0)) return status::kInvalidParameter;
    *read = 0;
    const auto result = port.read(static_cast<char*>(buffer), size, *read);
    if (const auto more = TheCallScript().nextRead()) *read = size + more;
    return result;
  });
}

uint32_t FT_Write(Handle handle, void* buffer, uint32_t size, uint32_t* written) {
  return CallOn(handle, "FT_Write", [&](const Chip&, Port& port) {
    if (written == nullptr || (buffer == nullptr && size > 0)) return status::kInvalidParameter;
    *written = 0;
    const auto fault = TheCallScript().nextWrite();
    const std::string_view bytes(static_cast<const char*>(buffer), std::min(size, fault.acceptAtMost));
    const auto result = port.write(bytes, *written);
    *written += fault.reportMore;
    return result;
  });
}

uint32_t FT_Purge(Handle handle, uint32_t queues) {
  return CallOn(handle, "FT_Purge", [&](const Chip&, Port& port) {
    if ((queues & ~qvio::d2xx::kPurgeBothQueues) != 0) return status::kInvalidParameter;
    port.purge(queues);
    return status::kOk;
  });
}

uint32_t FT_SetBaudRate(Handle handle, uint32_t rate) {
  return CallOn(handle, "FT_SetBaudRate", [&](const Chip&, Port& port) {
    if (rate == 0 || rate > kLargestBaudRate) return status::kInvalidBaudRate;
    port.note("baud", {rate});
    return status::kOk;
  });
}

uint32_t FT_SetDataCharacteristics(Handle handle, uint8_t bits, uint8_t stopBits, uint8_t parity) {
  const bool isValid =
      (bits == 7 || bits == 8) && (stopBits == 0 || stopBits == 2) && parity <= qvio::d2xx::kLargestParity;
  return Note(handle, "FT_SetDataCharacteristics", isValid, "data", {bits, stopBits, parity});
}

uint32_t FT_SetFlowControl(Handle handle, uint16_t flow, uint8_t xon, uint8_t xoff) {
  const bool isValid = std::ranges::count(qvio::d2xx::kFlows, flow) > 0;
  return Note(handle, "FT_SetFlowControl", isValid, "flow", {flow, xon, xoff});
}

uint32_t FT_SetBitMode(Handle handle, uint8_t mask, uint8_t mode) {
  return Note(handle, "FT_SetBitMode", true, "bitmode", {mask, mode});
}

uint32_t FT_SetUSBParameters(Handle handle, uint32_t inSize, uint32_t outSize) {
  return Note(handle, "FT_SetUSBParameters", true, "usb", {inSize, outSize});
}

uint32_t FT_SetTimeouts(Handle handle, uint32_t readMs, uint32_t writeMs) {
  return CallOn(handle, "FT_SetTimeouts", [&](const Chip&, Port& port) {
    port.setTimeouts(readMs, writeMs);
    return status::kOk;
  });
}

uint32_t FT_SetLatencyTimer(Handle handle, uint8_t ms) {
  return CallOn(handle, "FT_SetLatencyTimer", [&](const Chip&, Port& port) {
    if (ms == 0) return status::kInvalidParameter;
    port.setLatency(ms);
    return status::kOk;
  });
}

uint32_t FT_SetEventNotification(Handle handle, uint32_t mask, void* eventHandle) {
  return CallOn(handle, "FT_SetEventNotification", [&](const Chip&, Port& port) {
    return port.setEvent(mask, static_cast<qvio::d2xx::EventHandle*>(eventHandle));
  });
}
