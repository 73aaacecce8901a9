// Datagrams as any host on the network may send them: decoding, the payload readers, the texts of the log.

#include <algorithm>
#include <array>
#include <string>

#include "check.h"
#include "nd/discover_info.h"
#include "nd/packet.h"
#include "nd/packet_text.h"

namespace {

using namespace quorvind;
using cppu::ByteWriter;
using qvfuzz::Check;

constexpr std::size_t kHeaderSize = 96;
constexpr std::size_t kSerialNumberStart = 16;
constexpr std::size_t kSerialNumberEnd = 80;
constexpr std::size_t kLongestText = 63;

constexpr std::array<uint8_t, 10> kOpCodes{opcode::kGetConfiguration,   opcode::kSetConfiguration,
                                           opcode::kResetConfiguration, opcode::kSetDeviceInfo,
                                           opcode::kDiscoverRequest,    opcode::kResult,
                                           opcode::kConfiguration,      opcode::kDiscoverReply,
                                           opcode::kDiscoverInform,     0xFF};

QV_ND_Packet Decoded(std::span<const uint8_t> datagram, const char* property) {
  QV_ND_Packet packet;
  Check(DecodePacket(datagram, packet), property);
  return packet;
}

bool Same(const QV_ND_Packet& a, const QV_ND_Packet& b) {
  return a.Version == b.Version && a.OpCode == b.OpCode && a.DeviceType == b.DeviceType &&
         a.SerialNumber == b.SerialNumber && a.Token == b.Token && a.Data == b.Data;
}

/// Each reader with any payload; the sanitizers see reads beyond its end.
void CheckReaders(const QV_ND_Packet& packet) {
  DeviceConfig config;
  DeviceConfig again;
  if (ReadConfiguration(packet, config))
    Check(ReadConfiguration(MakeConfiguration(0, "", {}, config), again) && again == config,
          "a configuration comes back");
  ResultCode code{};
  if (ReadResult(packet, code)) Check(!ResultCodeName(code).empty(), "every result code has a name");
  DiscoverInfo device;
  if (ReadDiscoverInfo(packet, device.ProtocolId, device.Port, device.Available, device.Info))
    Check(device.Info.size() <= kLongestText, "the description of a device is bounded");
  if (ReadDeviceInfo(packet, device.Info))
    Check(device.Info.size() <= kLongestText, "a device info is bounded");
  Check(!ToString(packet).empty(), "every packet has a text");
}

/// With every opcode in turn, so that each payload meets each reader.
void CheckPayload(QV_ND_Packet packet) {
  for (const auto opCode : kOpCodes) {
    packet.OpCode = opCode;
    CheckReaders(packet);
  }
}

void CheckPacket(std::span<const uint8_t> datagram, const QV_ND_Packet& packet) {
  const auto encoded = EncodePacket(packet);
  Check(encoded.size() == datagram.size(), "a datagram keeps its size");
  Check(
      std::equal(encoded.begin(), encoded.begin() + kSerialNumberStart, datagram.begin()) &&
          std::equal(encoded.begin() + kSerialNumberEnd, encoded.end(), datagram.begin() + kSerialNumberEnd),
      "a datagram is encoded as it was but for what follows the end of its serial number");
  Check(Same(packet, Decoded(encoded, "what is encoded can be decoded")), "a packet comes back");
  CheckPayload(packet);
}

/// The input within a frame that decoding takes.
Bytes Framed(std::span<const uint8_t> input) {
  Bytes datagram(input.begin(), input.end());
  datagram.resize((std::max(datagram.size(), kHeaderSize) + 3) / 4 * 4);
  const auto length = static_cast<uint16_t>(datagram.size() - 3);
  ByteWriter out;
  out.le(uint8_t{0xC2});
  out.le(length);
  out.le(datagram[3]);
  out.le(uint32_t{0x514E4450});
  const auto frame = out.take();
  std::ranges::copy(frame, datagram.begin());
  return datagram;
}

/// A serial number of any length and content, and a payload of any length.
void CheckSerialNumber(std::span<const uint8_t> input) {
  const std::string text(input.begin(), input.end());
  QV_ND_Packet packet;
  packet.SerialNumber = text;
  packet.Data.assign(input.begin(), input.end());
  const auto read = Decoded(EncodePacket(packet), "any packet can be encoded");
  Check(read.SerialNumber == text.substr(0, std::min(text.find('\0'), kLongestText)),
        "a serial number is cut");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span input(data, size);
  QV_ND_Packet packet;
  if (DecodePacket(input, packet)) CheckPacket(input, packet);
  Check(!ToString(QV_ND_RawPacket{{data, data + size}}).empty(), "every datagram has a text");
  if (size > 65000) return 0;
  const auto framed = Framed(input);
  CheckPacket(framed, Decoded(framed, "a framed datagram can be decoded"));
  CheckSerialNumber(input);
  return 0;
}
