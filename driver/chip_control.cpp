#include "driver/chip_control.h"

#include <array>
#include <span>
#include <system_error>

#include "io/ftdi/d2xx.h"

namespace qvusb {
namespace {

enum Request : uint8_t {
  Reset = 0x00,
  SetFlowControl = 0x02,
  SetSpeed = 0x03,
  SetData = 0x04,
  SetLatency = 0x09,
  SetBitMode = 0x0B,
  ReadEeprom = 0x90
};

constexpr unsigned kResetAll = 0;

void Require(int error) {
  if (error != 0) throw std::system_error(error, std::generic_category(), "request to the chip");
}

}  // namespace

ChipControl::ChipControl(Link& link, const ChipKind& kind, uint8_t channel)
    : link_(link), index_(kind.channels > 1 ? static_cast<uint8_t>(channel + 1) : uint8_t{0}) {}

/// @param high  of the index, whose low byte is the channel
void ChipControl::send(uint8_t request, unsigned value, unsigned high) const {
  const auto index = static_cast<uint16_t>(high << 8U | index_);
  Require(link_.control({request, static_cast<uint16_t>(value), index}, {}));
}

void ChipControl::reset() const { send(Reset, kResetAll); }

void ChipControl::purge(Queue queue) const { send(Reset, static_cast<uint16_t>(queue)); }

/// Only chips of several channels have the channel in the low byte.
void ChipControl::setSpeed(const Divisor& divisor) const {
  if (index_ != 0) return send(SetSpeed, divisor.low, divisor.high);
  Require(link_.control({SetSpeed, divisor.low, divisor.high}, {}));
}

void ChipControl::setData(uint8_t bits, uint8_t stopBits, uint8_t parity) const {
  send(SetData, bits | unsigned{parity} << 8U | unsigned{stopBits} << 11U);
}

void ChipControl::setFlowControl(uint16_t flow, uint8_t xon, uint8_t xoff) const {
  const auto characters = flow == qvio::d2xx::kFlowXonXoff ? unsigned{xoff} << 8U | xon : 0U;
  send(SetFlowControl, characters, unsigned{flow} >> 8U);
}

void ChipControl::setLatency(uint8_t ms) const { send(SetLatency, ms); }

void ChipControl::setBitMode(uint8_t mask, uint8_t mode) const {
  send(SetBitMode, unsigned{mode} << 8U | mask);
}

uint16_t ChipControl::readEeprom(std::size_t word) const {
  std::array<uint8_t, 2> bytes{};
  Require(link_.control({ReadEeprom, 0, static_cast<uint16_t>(word)}, bytes));
  return static_cast<uint16_t>(bytes[0] | bytes[1] << 8U);
}

}  // namespace qvusb
