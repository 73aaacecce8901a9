// Datagrams as any host on the network may send them: decoding, the payload readers, the texts of the log.

#include <algorithm>
#include <array>
#include <string>
#include <tuple>

#include "check.h"
#include "nd/errors.h"
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

bool IsSent(uint8_t opCode, std::initializer_list<uint8_t> by) {
  return std::ranges::find(by, opCode) != by.end();
}

/// Whether the payload, padded or not, starts as the one that would be written.
bool StartsAs(const QV_ND_Packet& packet, const QV_ND_Packet& written) {
  const auto& start = written.Data;
  return packet.Data.size() >= start.size() && std::equal(start.begin(), start.end(), packet.Data.begin());
}

/// Whether the text is the one at this place of the payload, after its length: up to its first zero byte.
bool IsTextAt(std::span<const uint8_t> payload, std::size_t place, const std::string& text) {
  const auto sent = payload.subspan(place + 1, payload[place]);
  const auto end = std::ranges::find(sent, 0);
  return std::equal(sent.begin(), end, text.begin(), text.end(),
                    [](uint8_t byte, char character) { return byte == static_cast<uint8_t>(character); });
}

void CheckConfiguration(const QV_ND_Packet& packet) {
  DeviceConfig config;
  if (!ReadConfiguration(packet, config)) return;
  Check(IsSent(packet.OpCode, {opcode::kGetConfiguration, opcode::kSetConfiguration, opcode::kConfiguration}),
        "a configuration is read from packets that carry one");
  DeviceConfig again;
  auto written = MakeConfiguration(0, "", {}, config);
  Check(ReadConfiguration(written, again) && again == config, "a configuration comes back");
  written.Data[0] = packet.Data[0];  // any value but 0 means DHCP
  Check(StartsAs(packet, written), "a configuration is read whole");
}

void CheckResult(const QV_ND_Packet& packet) {
  ResultCode code{};
  if (!ReadResult(packet, code)) return;
  Check(packet.OpCode == opcode::kResult, "a result is read from a result");
  Check(StartsAs(packet, MakeResult(0, "", {}, code)), "a result is written as it was read");
  Check(!ResultCodeName(code).empty(), "every result code has a name");
}

void CheckDiscoverInfo(const QV_ND_Packet& packet) {
  uint8_t protocolId = 0;
  uint16_t port = 0;
  bool available = false;
  std::string info;
  if (!ReadDiscoverInfo(packet, protocolId, port, available, info)) return;
  Check(IsSent(packet.OpCode, {opcode::kDiscoverReply, opcode::kDiscoverInform}),
        "a device describes itself in replies and announcements");
  Check(info.size() <= kLongestText, "the description of a device is bounded");
  ByteWriter out;
  out.le(protocolId);
  out.le(packet.Data[1]);
  out.le(port);
  QV_ND_Packet written;
  written.Data = out.take();
  Check(StartsAs(packet, written) && IsTextAt(packet.Data, written.Data.size(), info),
        "a description is read as it was sent");
  Check(available == (packet.Data[1] != 0), "availability is one byte");
}

void CheckDeviceInfo(const QV_ND_Packet& packet) {
  std::string info;
  if (!ReadDeviceInfo(packet, info)) return;
  Check(packet.OpCode == opcode::kSetDeviceInfo && info.size() <= kLongestText,
        "a device info is bounded and read from a request that sets one");
  const bool printable = std::ranges::all_of(info, [](char c) { return c >= ' ' && c <= '~'; });
  Check(IsTextAt(packet.Data, 0, info), "a device info is read as it was sent");
  try {
    std::ignore = MakeSetDeviceInfo(0, "", {}, info);
    Check(printable, "only printable text is sent");
  } catch (const InvalidArgumentException&) {
    Check(!printable, "printable text is sent");
  }
}

/// With every opcode in turn, so that each payload meets each reader.
void CheckPayload(QV_ND_Packet packet) {
  for (const auto opCode : kOpCodes) {
    packet.OpCode = opCode;
    CheckConfiguration(packet);
    CheckResult(packet);
    CheckDiscoverInfo(packet);
    CheckDeviceInfo(packet);
    Check(!ToString(packet).empty(), "every packet has a text");
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
