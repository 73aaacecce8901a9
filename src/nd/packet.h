#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "util/bytes.h"
#include "util/ip4.h"

namespace quorvind {

using cppu::Bytes;

/// Identifies a request; a reply carries the token of its request.
using RequestToken = std::array<unsigned char, 16>;

/// One packet of the discovery protocol: one UDP datagram of a 96-byte header and an opcode's payload.
struct QV_ND_Packet {
  uint32_t Version = 1;
  uint8_t OpCode = 0;
  uint32_t DeviceType = 0;   ///< the type that the packet is about or addressed to, or kAnyDeviceType
  std::string SerialNumber;  ///< empty: any device
  RequestToken Token{};
  Bytes Data;  ///< payload as on the wire, padding included
};

/// A datagram as sent or received.
struct QV_ND_RawPacket {
  Bytes Data;
};

inline constexpr uint32_t kAnyDeviceType = 0xFFFFFFFF;

/// Kinds of packets. Answers of devices have the high bit set.
namespace opcode {
inline constexpr uint8_t kGetConfiguration = 0x01;
inline constexpr uint8_t kSetConfiguration = 0x02;
inline constexpr uint8_t kResetConfiguration = 0x03;
inline constexpr uint8_t kSetDeviceInfo = 0x04;
inline constexpr uint8_t kDiscoverRequest = 0x21;
inline constexpr uint8_t kResult = 0x81;
inline constexpr uint8_t kConfiguration = 0x82;
inline constexpr uint8_t kDiscoverReply = 0xA1;   ///< answers a Discover Request
inline constexpr uint8_t kDiscoverInform = 0xA2;  ///< unsolicited announcement
}  // namespace opcode

/// What a device says about a request. The gaps are the protocol's.
enum class ResultCode : uint16_t {
  Success = 0,
  UnknownCommand = 1,
  InvalidParameter = 19,
  PermissionDenied = 31,
  ProtocolVersionNotSupported = 32,
  CommandNotProcessable = 37,
  FeatureNotSupported = 32765,
  FeatureNotImplemented = 32766,
  Other = 32767
};

/// IP configuration of a device.
struct DeviceConfig {
  IP4 IP{};
  IP4 SubnetMask{};
  IP4 Gateway{};
  bool DHCP = false;

  friend bool operator==(const DeviceConfig&, const DeviceConfig&) = default;
};

/// Gives the datagram: always a multiple of 4 bytes. A serial number longer than 63 bytes is cut.
Bytes EncodePacket(const QV_ND_Packet& packet);

/// Whether the datagram is a well-formed packet; `out` is filled only as far as decoding got. Any opcode is
/// taken. Throws nothing but std::bad_alloc.
bool DecodePacket(std::span<const uint8_t> datagram, QV_ND_Packet& out);

/// The packets that a host sends, Version 1.
QV_ND_Packet MakeDiscoverRequest(uint32_t deviceType, const std::string& serialNumber,
                                 const RequestToken& token);
QV_ND_Packet MakeGetConfiguration(uint32_t deviceType, const std::string& serialNumber,
                                  const RequestToken& token);
QV_ND_Packet MakeSetConfiguration(uint32_t deviceType, const std::string& serialNumber,
                                  const RequestToken& token, const DeviceConfig& config);
QV_ND_Packet MakeResetConfiguration(uint32_t deviceType, const std::string& serialNumber,
                                    const RequestToken& token);

/// @param info  printable ASCII, sent up to 63 bytes; throws InvalidArgumentException for any other byte
QV_ND_Packet MakeSetDeviceInfo(uint32_t deviceType, const std::string& serialNumber,
                               const RequestToken& token, const std::string& info);

/// The packets that a device answers with.
QV_ND_Packet MakeResult(uint32_t deviceType, const std::string& serialNumber, const RequestToken& token,
                        ResultCode code);
QV_ND_Packet MakeConfiguration(uint32_t deviceType, const std::string& serialNumber,
                               const RequestToken& token, const DeviceConfig& config);

/// Payload readers: false when the packet is of another opcode or its payload is too short, after which the
/// results are unspecified.

/// Takes a Get Configuration too, which normally has no payload: some devices answer with it.
bool ReadConfiguration(const QV_ND_Packet& packet, DeviceConfig& config);
bool ReadResult(const QV_ND_Packet& packet, ResultCode& code);

/// Of a Discover Reply or Discover Inform.
bool ReadDiscoverInfo(const QV_ND_Packet& packet, uint8_t& protocolId, uint16_t& port, bool& available,
                      std::string& info);

/// Of a Set Device Info.
bool ReadDeviceInfo(const QV_ND_Packet& packet, std::string& info);

}  // namespace quorvind
