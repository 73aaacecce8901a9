#include "sim/discovery_side.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace qvsim {
namespace {

using namespace quorvind;

constexpr std::size_t kLongestInfo = 63;

}  // namespace

DiscoverySide::DiscoverySide(Identity identity, const DeviceConfig& config)
    : identity_(std::move(identity)), factoryConfig_(config), config_(config) {}

bool DiscoverySide::isAddressedBy(const QV_ND_Packet& request) const {
  const bool isDiscovery = request.OpCode == opcode::kDiscoverRequest;
  const bool typeFits =
      request.DeviceType == identity_.deviceType || (isDiscovery && request.DeviceType == kAnyDeviceType);
  const bool serialFits =
      request.SerialNumber == identity_.serialNumber || (isDiscovery && request.SerialNumber.empty());
  return typeFits && serialFits;
}

QV_ND_Packet DiscoverySide::answer(const QV_ND_Packet& request, const std::optional<ResultCode>& refusal) {
  if (request.OpCode == opcode::kDiscoverRequest)
    return discoverPacket(opcode::kDiscoverReply, request.Token);
  if (request.OpCode == opcode::kGetConfiguration && !refusal)
    return MakeConfiguration(identity_.deviceType, identity_.serialNumber, request.Token, config_);
  return MakeResult(identity_.deviceType, identity_.serialNumber, request.Token,
                    refusal ? *refusal : execute(request));
}

ResultCode DiscoverySide::execute(const QV_ND_Packet& request) {
  if (request.Version != 1) return ResultCode::ProtocolVersionNotSupported;
  switch (request.OpCode) {
    case opcode::kSetConfiguration: {
      DeviceConfig config;
      if (!ReadConfiguration(request, config)) return ResultCode::InvalidParameter;
      config_ = config;
      return ResultCode::Success;
    }
    case opcode::kResetConfiguration:
      config_ = factoryConfig_;
      return ResultCode::Success;
    case opcode::kSetDeviceInfo: {
      std::string info;
      if (!ReadDeviceInfo(request, info)) return ResultCode::InvalidParameter;
      identity_.info = info;
      return ResultCode::Success;
    }
    default:
      return ResultCode::UnknownCommand;
  }
}

QV_ND_Packet DiscoverySide::inform() const { return discoverPacket(opcode::kDiscoverInform, {}); }

QV_ND_Packet DiscoverySide::discoverPacket(uint8_t opCode, const RequestToken& token) const {
  const auto info = std::string_view(identity_.info).substr(0, kLongestInfo);
  cppu::ByteWriter payload;
  payload.le(identity_.protocolId);
  payload.le(static_cast<uint8_t>(available ? 1 : 0));
  payload.le(port);
  payload.le(static_cast<uint8_t>(info.size()));
  payload.text(info);
  payload.le(uint8_t{0});
  return {.OpCode = opCode,
          .DeviceType = identity_.deviceType,
          .SerialNumber = identity_.serialNumber,
          .Token = token,
          .Data = payload.take()};
}

Bytes MalformedDatagram(unsigned number) {
  const DiscoverySide device({.serialNumber = "MALFORMED"}, {});
  auto datagram = EncodePacket(device.inform());
  const auto infoLength = datagram.begin() + 100;
  switch (number % 9) {
    case 0:
      return {};
    case 1:
      return {0xC2};
    case 2:
      datagram.resize(95);
      break;
    case 3:
      datagram.resize(datagram.size() + 2);
      break;
    case 4:
      datagram[0] = 0xC3;
      break;
    case 5:
      ++datagram[1];
      break;
    case 6:
      datagram[4] ^= 0xFF;
      break;
    case 7:
      *infoLength = 0xFF;  // longer than the payload
      break;
    default:
      datagram.assign(1500, 0xA5);
  }
  return datagram;
}

}  // namespace qvsim
