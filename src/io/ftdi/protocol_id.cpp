#include "io/ftdi/protocol_id.h"

#include <chrono>
#include <vector>

#include "io/ftdi/chip.h"
#include "util/bytes.h"
#include "util/failure.h"

namespace qvio {
namespace {

using cppu::Bytes;
using std::chrono::milliseconds;

// One message: start byte, length of the rest (16 bits, little-endian), code, payload; requests end with a
// check byte.
constexpr uint8_t kStartByte = 0xA4;
constexpr uint8_t kIdentityRequest = 0x01;
constexpr uint8_t kIdentityReply = 0x81;
constexpr uint32_t kHeaderSize = 3;
constexpr milliseconds kLimit{100};
constexpr uint32_t kLatencyMs = 2;

/// The check byte makes the sum of all bytes after the start byte zero.
Bytes IdentityRequest() {
  cppu::ByteWriter out;
  out.le(kStartByte);
  out.le(uint16_t{2});
  out.le(kIdentityRequest);
  auto message = out.take();
  uint8_t sum = 0;
  for (std::size_t i = 1; i < message.size(); ++i) sum = static_cast<uint8_t>(sum + message[i]);
  message.push_back(static_cast<uint8_t>(-sum));
  return message;
}

Bytes ReadExactly(const Chip& chip, uint32_t size) {
  Bytes bytes(size);
  uint32_t got = 0;
  const auto status = chip.functions().FT_Read(chip.handle(), bytes.data(), size, &got);
  Require(status == d2xx::status::kOk && got == size, QV_IO_ERROR_RECEIVE_FAILED, "no protocol id");
  return bytes;
}

/// Code and payload of the next message.
Bytes ReadMessage(const Chip& chip) {
  const auto header = ReadExactly(chip, kHeaderSize);
  cppu::ByteReader in(header);
  const auto start = in.le<uint8_t>();
  const auto length = in.le<uint16_t>();
  Require(start == kStartByte && length != 0, QV_IO_ERROR_RECEIVE_FAILED, "no protocol id");
  return ReadExactly(chip, length);
}

std::optional<uint8_t> Exchange(const Chip& chip, const UsbDevice& device) {
  const auto userArea = chip.readUserArea();
  // Another maker's device must not receive a byte from us.
  if (!HasMakersMark(userArea)) return {};
  const auto settings =
      ChooseLinkSettings({userArea, device.rawDescription, device.isHighSpeedDualChannel()}, {}, {});
  chip.configure(settings,
                 {static_cast<uint32_t>(kLimit.count()), static_cast<uint32_t>(kLimit.count()), kLatencyMs});
  chip.write(IdentityRequest(), kLimit, nullptr);
  const auto reply = ReadMessage(chip);
  if (reply.size() < 2 || reply[0] != kIdentityReply) return {};
  return reply[1];
}

}  // namespace

std::optional<uint8_t> AskProtocolId(const D2xxFunctions& functions, const UsbDevice& device,
                                     std::size_t index) {
  const auto chip = Chip::openByIndex(functions, index);
  if (!chip) return {};
  try {
    return Exchange(*chip, device);
  } catch (const Failure&) {
    return {};  // a device that does not answer has no protocol id
  }
}

}  // namespace qvio
