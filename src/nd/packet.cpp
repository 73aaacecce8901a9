#include "nd/packet.h"

#include <algorithm>
#include <utility>

#include "nd/errors.h"

namespace quorvind {
namespace {

using cppu::ByteReader;
using cppu::ByteWriter;

constexpr uint8_t kStartByte = 0xC2;
constexpr uint32_t kMagic = 0x514E4450;
constexpr std::size_t kHeaderSize = 96;
constexpr std::size_t kSerialNumberField = 64;  // the last byte is always zero
constexpr std::size_t kUncountedBytes = 3;      // start byte and length field
constexpr std::size_t kAlignment = 4;
constexpr std::size_t kLongestInfo = 63;

QV_ND_Packet MakePacket(uint8_t opCode, uint32_t deviceType, const std::string& serialNumber,
                        const RequestToken& token, Bytes data = {}) {
  return {.OpCode = opCode,
          .DeviceType = deviceType,
          .SerialNumber = serialNumber,
          .Token = token,
          .Data = std::move(data)};
}

Bytes ConfigurationPayload(const DeviceConfig& config) {
  ByteWriter out;
  out.le(static_cast<uint8_t>(config.DHCP ? 1 : 0));
  out.raw(config.IP);
  out.raw(config.Gateway);
  out.raw(config.SubnetMask);
  return out.take();
}

bool IsPrintable(char character) { return character >= 0x20 && character <= 0x7E; }

/// A text after its length; its terminating byte must be present. It ends at its first zero byte, because C
/// callers would lose the rest anyway.
bool ReadInfo(ByteReader& in, std::string& info) {
  const std::size_t length = in.le<uint8_t>();
  const auto text = in.text(length);
  info = text.substr(0, text.find('\0'));
  in.raw(1);
  return length <= kLongestInfo && in.ok();
}

}  // namespace

Bytes EncodePacket(const QV_ND_Packet& packet) {
  // The protocol requires multiples of 4; DecodePacket checks that too.
  const auto size = (kHeaderSize + packet.Data.size() + kAlignment - 1) / kAlignment * kAlignment;
  ByteWriter out(size);
  out.le(kStartByte);
  out.le(static_cast<uint16_t>(size - kUncountedBytes));
  out.le(packet.OpCode);
  out.le(kMagic);
  out.le(packet.Version);
  out.le(packet.DeviceType);
  const auto serialNumberEnd = out.size() + kSerialNumberField;
  out.text(std::string_view(packet.SerialNumber).substr(0, kSerialNumberField - 1));
  out.padTo(serialNumberEnd);
  out.raw(packet.Token);
  out.raw(packet.Data);
  out.padTo(size);
  return out.take();
}

bool DecodePacket(std::span<const uint8_t> datagram, QV_ND_Packet& out) {
  if (datagram.size() < kHeaderSize || datagram.size() % kAlignment != 0) return false;
  ByteReader in(datagram);
  if (in.le<uint8_t>() != kStartByte) return false;
  // Exact: a datagram that was cut on the way, or has something appended, is not trusted.
  if (in.le<uint16_t>() != datagram.size() - kUncountedBytes) return false;
  const auto opCode = in.le<uint8_t>();
  if (in.le<uint32_t>() != kMagic) return false;
  out.OpCode = opCode;
  out.Version = in.le<uint32_t>();
  out.DeviceType = in.le<uint32_t>();
  // The text ends at its first zero byte; the rest of the field may hold anything.
  const auto serialNumber = in.text(kSerialNumberField).substr(0, kSerialNumberField - 1);
  out.SerialNumber = serialNumber.substr(0, serialNumber.find('\0'));
  in.into(out.Token);
  out.Data.assign(in.rest().begin(), in.rest().end());
  return true;
}

QV_ND_Packet MakeDiscoverRequest(uint32_t deviceType, const std::string& serialNumber,
                                 const RequestToken& token) {
  return MakePacket(opcode::kDiscoverRequest, deviceType, serialNumber, token);
}

QV_ND_Packet MakeGetConfiguration(uint32_t deviceType, const std::string& serialNumber,
                                  const RequestToken& token) {
  return MakePacket(opcode::kGetConfiguration, deviceType, serialNumber, token);
}

QV_ND_Packet MakeSetConfiguration(uint32_t deviceType, const std::string& serialNumber,
                                  const RequestToken& token, const DeviceConfig& config) {
  return MakePacket(opcode::kSetConfiguration, deviceType, serialNumber, token, ConfigurationPayload(config));
}

QV_ND_Packet MakeResetConfiguration(uint32_t deviceType, const std::string& serialNumber,
                                    const RequestToken& token) {
  return MakePacket(opcode::kResetConfiguration, deviceType, serialNumber, token);
}

QV_ND_Packet MakeSetDeviceInfo(uint32_t deviceType, const std::string& serialNumber,
                               const RequestToken& token, const std::string& info) {
  if (!std::ranges::all_of(info, IsPrintable)) {
    throw InvalidArgumentException("Device info string contains invalid characters");
  }
  // Cut rather than refused. The length byte could say more, but the protocol ends at 63.
  const auto sent = std::string_view(info).substr(0, kLongestInfo);
  ByteWriter out;
  out.le(static_cast<uint8_t>(sent.size()));
  out.text(sent);
  out.le(uint8_t{0});
  return MakePacket(opcode::kSetDeviceInfo, deviceType, serialNumber, token, out.take());
}

QV_ND_Packet MakeResult(uint32_t deviceType, const std::string& serialNumber, const RequestToken& token,
                        ResultCode code) {
  ByteWriter out;
  out.le(static_cast<uint16_t>(code));
  return MakePacket(opcode::kResult, deviceType, serialNumber, token, out.take());
}

QV_ND_Packet MakeConfiguration(uint32_t deviceType, const std::string& serialNumber,
                               const RequestToken& token, const DeviceConfig& config) {
  return MakePacket(opcode::kConfiguration, deviceType, serialNumber, token, ConfigurationPayload(config));
}

bool ReadConfiguration(const QV_ND_Packet& packet, DeviceConfig& config) {
  if (packet.OpCode != opcode::kGetConfiguration && packet.OpCode != opcode::kSetConfiguration &&
      packet.OpCode != opcode::kConfiguration) {
    return false;
  }
  ByteReader in(packet.Data);
  // The order on the wire; the struct has it the way people write it.
  config.DHCP = in.le<uint8_t>() != 0;
  in.into(config.IP);
  in.into(config.Gateway);
  in.into(config.SubnetMask);
  return in.ok();
}

bool ReadResult(const QV_ND_Packet& packet, ResultCode& code) {
  if (packet.OpCode != opcode::kResult) return false;
  ByteReader in(packet.Data);
  code = static_cast<ResultCode>(in.le<uint16_t>());
  return in.ok();
}

bool ReadDiscoverInfo(const QV_ND_Packet& packet, uint8_t& protocolId, uint16_t& port, bool& available,
                      std::string& info) {
  if (packet.OpCode != opcode::kDiscoverReply && packet.OpCode != opcode::kDiscoverInform) return false;
  ByteReader in(packet.Data);
  protocolId = in.le<uint8_t>();
  available = in.le<uint8_t>() != 0;
  port = in.le<uint16_t>();
  return ReadInfo(in, info);
}

bool ReadDeviceInfo(const QV_ND_Packet& packet, std::string& info) {
  if (packet.OpCode != opcode::kSetDeviceInfo) return false;
  ByteReader in(packet.Data);
  return ReadInfo(in, info);
}

}  // namespace quorvind
