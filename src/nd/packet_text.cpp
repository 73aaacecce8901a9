#include "nd/packet_text.h"

#include <array>
#include <utility>

#include "util/lookup.h"

namespace quorvind {
namespace {

constexpr std::array<std::pair<uint8_t, std::string_view>, 9> kOpCodeNames{
    {{opcode::kGetConfiguration, "Get Configuration"},
     {opcode::kSetConfiguration, "Set Configuration"},
     {opcode::kResetConfiguration, "Reset Configuration"},
     {opcode::kSetDeviceInfo, "Set Device Info"},
     {opcode::kDiscoverRequest, "Discover Request"},
     {opcode::kResult, "Result"},
     {opcode::kConfiguration, "Configuration"},
     {opcode::kDiscoverReply, "Discover Reply"},
     {opcode::kDiscoverInform, "Discover Inform"}}};

constexpr std::array<std::pair<ResultCode, std::string_view>, 9> kResultCodeNames{
    {{ResultCode::Success, "Success"},
     {ResultCode::UnknownCommand, "UnknownCommand"},
     {ResultCode::InvalidParameter, "InvalidParameter"},
     {ResultCode::PermissionDenied, "PermissionDenied"},
     {ResultCode::ProtocolVersionNotSupported, "ProtocolVersionNotSupported"},
     {ResultCode::CommandNotProcessable, "CommandNotProcessable"},
     {ResultCode::FeatureNotSupported, "FeatureNotSupported"},
     {ResultCode::FeatureNotImplemented, "FeatureNotImplemented"},
     {ResultCode::Other, "Other"}}};

constexpr std::string_view kUpperDigits = "0123456789ABCDEF";
constexpr std::string_view kLowerDigits = "0123456789abcdef";

template <class Names, class Value>
std::string_view NameOf(const Names& names, Value value) {
  const auto* const name = cppu::Lookup(names, value);
  return name != nullptr ? *name : "Unknown";
}

void AppendHex(std::string& text, uint8_t byte, std::string_view digits) {
  text += digits[byte >> 4U];
  text += digits[byte & 0x0FU];
}

std::string Quoted(const std::string& text) { return '"' + text + '"'; }

std::string HexWithoutLeadingZero(uint8_t byte) {
  std::string text;
  AppendHex(text, byte, kLowerDigits);
  return byte < 0x10 ? text.substr(1) : text;
}

constexpr std::string_view kInvalidData = ", Data: INVALID";

std::string ResultText(const QV_ND_Packet& packet) {
  ResultCode code{};
  if (!ReadResult(packet, code)) return std::string(kInvalidData);
  return ", ResultCode: " + std::string(ResultCodeName(code));
}

std::string ConfigurationText(const QV_ND_Packet& packet) {
  DeviceConfig config;
  if (!ReadConfiguration(packet, config)) return std::string(kInvalidData);
  return ", IP: " + IP4ToString(config.IP) + ", Gateway: " + IP4ToString(config.Gateway) +
         ", SubnetMask: " + IP4ToString(config.SubnetMask) +
         ", DHCP: " + (config.DHCP ? "Enabled" : "Disabled");
}

std::string DiscoverText(const QV_ND_Packet& packet) {
  uint8_t protocolId = 0;
  uint16_t port = 0;
  bool available = false;
  std::string info;
  if (!ReadDiscoverInfo(packet, protocolId, port, available, info)) return std::string(kInvalidData);
  return ", ProtocolId: 0x" + HexWithoutLeadingZero(protocolId) + ", Port: " + std::to_string(port) +
         ", Available: " + (available ? "Yes" : "No") + ", Info: " + info;
}

std::string DeviceInfoText(const QV_ND_Packet& packet) {
  std::string info;
  if (!ReadDeviceInfo(packet, info)) return std::string(kInvalidData);
  return ", Device Info: " + Quoted(info);
}

std::string PayloadText(const QV_ND_Packet& packet) {
  switch (packet.OpCode) {
    case opcode::kResult:
      return ResultText(packet);
    case opcode::kSetConfiguration:
    case opcode::kConfiguration:
      return ConfigurationText(packet);
    case opcode::kDiscoverReply:
    case opcode::kDiscoverInform:
      return DiscoverText(packet);
    case opcode::kSetDeviceInfo:
      return DeviceInfoText(packet);
    default:
      return {};
  }
}

}  // namespace

std::string_view ResultCodeName(ResultCode code) { return NameOf(kResultCodeNames, code); }

std::string TokenToString(const RequestToken& token) {
  std::string text;
  for (std::size_t i = 0; i < token.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    AppendHex(text, token.at(i), kUpperDigits);
  }
  return text;
}

std::string ToString(const QV_ND_Packet& packet) {
  return "QV_ND_Packet { OpCode: " + std::string(NameOf(kOpCodeNames, packet.OpCode)) +
         ", Version: " + std::to_string(packet.Version) + ", SerialNumber: " + Quoted(packet.SerialNumber) +
         ", Token: " + TokenToString(packet.Token) + PayloadText(packet) + " }";
}

std::string ToString(const QV_ND_RawPacket& datagram) {
  auto text = "QV_ND_RawPacket { size: " + std::to_string(datagram.Data.size());
  if (!datagram.Data.empty()) text += ", data:";
  for (std::size_t i = 0; i < datagram.Data.size(); ++i) {
    if (i % 8 == 0) text += ' ';  // sets groups of eight apart
    AppendHex(text, datagram.Data[i], kLowerDigits);
    text += ' ';
  }
  return text + '}';
}

}  // namespace quorvind
