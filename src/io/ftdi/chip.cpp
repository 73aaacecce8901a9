#include "io/ftdi/chip.h"

#include <algorithm>
#include <limits>
#include <thread>

#include "util/failure.h"

namespace qvio {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t kLargestUserArea = 65536;  // far above any EEPROM; a larger size is a fault of the chip
constexpr uint8_t kDataBits = 8;
constexpr uint8_t kOneStopBit = 0;
constexpr uint8_t kNoParity = 0;
constexpr uint8_t kAllPins = 0xFF;
constexpr auto kBitModeSettling = 10ms;
constexpr uint32_t kFifoTransferSize = 65536;
constexpr auto kRestOfFullQueue = 1ms;

}  // namespace

// The driver takes the text as writable.
// cppcheck-suppress passedByValue
Chip Chip::openBySerialNumber(const D2xxFunctions& functions, std::string serialNumber) {
  d2xx::Handle handle = nullptr;
  RequireDriver(functions.FT_OpenEx(serialNumber.data(), d2xx::kOpenBySerialNumber, &handle), "FT_OpenEx");
  return {functions, handle};
}

std::optional<Chip> Chip::openByIndex(const D2xxFunctions& functions, std::size_t index) {
  d2xx::Handle handle = nullptr;
  if (functions.FT_Open(static_cast<int>(index), &handle) != d2xx::status::kOk) return {};
  return Chip(functions, handle);
}

void Chip::close() noexcept {
  if (functions_ != nullptr) std::exchange(functions_, nullptr)->FT_Close(std::exchange(handle_, nullptr));
}

std::vector<uint8_t> Chip::readUserArea() const {
  uint32_t size = 0;
  RequireDriver(functions_->FT_EE_UASize(handle_, &size), "FT_EE_UASize");
  Require(size <= kLargestUserArea, QV_IO_ERROR_DRIVER_FAILURE, "the chip reports a user area of % bytes",
          {size});
  std::vector<uint8_t> area(size + 1);  // even an empty area needs a valid address
  uint32_t read = 0;
  RequireDriver(functions_->FT_EE_UARead(handle_, area.data(), size, &read), "FT_EE_UARead");
  area.resize(size);
  return area;
}

void Chip::configure(const LinkSettings& settings, const ChipTimes& times) const {
  // In FIFO mode the chip has no line, and refuses a speed.
  if (!settings.fifo) {
    Require(settings.lineSpeed != 0, QV_IO_ERROR_INVALID_ARGUMENT,
            "baudrate is not given, and the product has no speed of its own");
    const auto status = functions_->FT_SetBaudRate(handle_, settings.lineSpeed);
    Require(status != d2xx::status::kInvalidBaudRate, QV_IO_ERROR_INVALID_ARGUMENT, "the chip refuses % baud",
            {settings.lineSpeed});
    RequireDriver(status, "FT_SetBaudRate");
  }
  RequireDriver(functions_->FT_SetDataCharacteristics(handle_, kDataBits, kOneStopBit, kNoParity),
                "FT_SetDataCharacteristics");
  RequireDriver(functions_->FT_SetFlowControl(handle_, settings.flowControl, 0, 0), "FT_SetFlowControl");
  RequireDriver(functions_->FT_SetTimeouts(handle_, times.readMs, times.writeMs), "FT_SetTimeouts");
  RequireDriver(functions_->FT_SetLatencyTimer(handle_, static_cast<uint8_t>(times.latencyMs)),
                "FT_SetLatencyTimer");
  if (settings.fifo) enterFifoMode();
  RequireDriver(functions_->FT_Purge(handle_, d2xx::kPurgeBothQueues), "FT_Purge");
}

void Chip::enterFifoMode() const {
  // A chip that is not in a mode yet may refuse the reset.
  functions_->FT_SetBitMode(handle_, kAllPins, d2xx::kBitModeReset);
  std::this_thread::sleep_for(kBitModeSettling);
  RequireDriver(functions_->FT_SetBitMode(handle_, kAllPins, d2xx::kBitModeSynchronousFifo), "FT_SetBitMode");
  RequireDriver(functions_->FT_SetUSBParameters(handle_, kFifoTransferSize, kFifoTransferSize),
                "FT_SetUSBParameters");
}

std::optional<uint32_t> Chip::id() const {
  unsigned long id = 0;
  if (functions_->FTID_GetChipIDFromHandle(handle_, &id) != d2xx::status::kOk) return {};
  return static_cast<uint32_t>(id);
}

void Chip::write(std::span<const uint8_t> bytes, std::chrono::milliseconds limit,
                 const cppu::StopSignal* stop) const {
  const auto start = std::chrono::steady_clock::now();
  while (!bytes.empty()) {
    Require(stop == nullptr || !stop->requested(), QV_IO_ERROR_TRANSMIT_FAILED, "the channel is closed");
    // The driver counts in 32 bits.
    const auto size =
        static_cast<uint32_t>(std::min<std::size_t>(bytes.size(), std::numeric_limits<uint32_t>::max()));
    uint32_t written = 0;
    // The driver only reads the bytes, although its interface does not say so.
    const auto status = functions_->FT_Write(handle_, const_cast<uint8_t*>(bytes.data()), size, &written);
    Require(status != d2xx::status::kIoError, QV_IO_ERROR_CONNECTION_LOST, "the chip is gone");
    Require(status == d2xx::status::kOk && written <= size, QV_IO_ERROR_TRANSMIT_FAILED,
            "FT_Write has written % of % bytes, status %", {written, size, status});
    bytes = bytes.subspan(written);
    if (bytes.empty()) return;
    Require(std::chrono::steady_clock::now() - start <= limit, QV_IO_ERROR_TRANSMIT_FAILED,
            "the chip has not taken all bytes within % ms", {static_cast<uint64_t>(limit.count())});
    if (written == 0 && stop != nullptr) stop->wait(kRestOfFullQueue);
    if (written == 0 && stop == nullptr) std::this_thread::sleep_for(kRestOfFullQueue);
  }
}

}  // namespace qvio
