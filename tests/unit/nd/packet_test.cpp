#include <gtest/gtest.h>

#include <algorithm>

#include "nd/packet_text.h"
#include "unit/nd/fake_connection.h"

namespace quorvind {
namespace {

constexpr RequestToken kToken{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                              0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
const Bytes kReply{0x0B, 1, 0x34, 0x12, 5, 'H', 'e', 'l', 'l', 'o', 0};  // one byte short of a multiple of 4
const Bytes kConfig{1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};

/// The bytes of a Discover Reply.
Bytes Datagram(const std::string& serialNumber) {
  Bytes bytes{0xC2, 0x69, 0, 0xA1, 0x50, 0x44, 0x4E, 0x51, 4, 3, 2, 1, 0xDD, 0xCC, 0xBB, 0xAA};
  bytes.resize(108);
  std::ranges::copy(serialNumber, bytes.begin() + 16);
  std::ranges::copy(kToken, bytes.begin() + 80);
  std::ranges::copy(kReply, bytes.begin() + 96);
  return bytes;
}

bool Decode(const Bytes& datagram, QV_ND_Packet&& packet = {}) {
  const Bytes exact(datagram.begin(), datagram.end());  // an overread leaves its memory
  return DecodePacket(exact, packet);
}

/// Which readers take the packet: 1 configuration, 2 result, 4 discovery, 8 device info.
int Readers(const QV_ND_Packet& packet) {
  DeviceConfig config;
  ResultCode code{};
  DiscoverInfo info;
  return ReadConfiguration(packet, config) + 2 * ReadResult(packet, code) +
         4 * ReadDiscoverInfo(packet, info.ProtocolId, info.Port, info.Available, info.Info) +
         8 * ReadDeviceInfo(packet, info.Info);
}

TEST(Packet, HasItsFieldsAtTheirPlaces) {
  const std::string longest(63, 'x');
  const std::string rows[][4] = {
      {"SN", "SN", std::string("SN\0rest", 7), "SN"},  // given, sent, received, read
      {"", "", "", ""},
      {longest + 'y', longest, longest + 'y', longest}};
  for (const auto& row : rows) {
    EXPECT_EQ(EncodePacket({0x01020304, 0xA1, 0xAABBCCDD, row[0], kToken, kReply}), Datagram(row[1]));
    QV_ND_Packet packet;
    EXPECT_TRUE(DecodePacket(Datagram(row[2]), packet));
    EXPECT_EQ(packet.SerialNumber, row[3]);
    EXPECT_EQ(EncodePacket(packet), Datagram(row[1]));
  }
  for (std::size_t size = 0; size < 116; ++size) {
    auto datagram = Datagram("SN");
    datagram.resize(size);
    EXPECT_EQ(Decode(datagram), size == 108) << size;
    if (size > 2) datagram[1] = static_cast<uint8_t>(size - 3);
    EXPECT_EQ(Decode(datagram), size >= 96 && size % 4 == 0) << size;
  }
}

TEST(Packet, PayloadsHaveTheirBytesInOrder) {
  const DeviceConfig config{.IP{1, 2, 3, 4}, .SubnetMask{9, 10, 11, 12}, .Gateway{5, 6, 7, 8}, .DHCP = true};
  auto packet = MakeSetConfiguration(7, "SN", kToken, config);
  EXPECT_EQ(packet.Data, kConfig);
  packet.Data[0] = 0x80;  // as true as 1
  DeviceConfig read;
  EXPECT_TRUE(ReadConfiguration(packet, read) && read == config);

  packet = MakeSetDeviceInfo(7, "SN", kToken, " ~" + std::string(70, 'i'));
  std::string info;
  EXPECT_TRUE(packet.Data.size() == 65 && ReadDeviceInfo(packet, info) &&
              info == " ~" + std::string(61, 'i'));
  packet.Data.resize(80);
  packet.Data[0] = 64;
  EXPECT_FALSE(ReadDeviceInfo(packet, info));
  for (const std::string bad : {"a\tb", "a\x7F", "\xC3\xA4"}) {
    EXPECT_EQ(TextOf<InvalidArgumentException>([&] { MakeSetDeviceInfo(7, "SN", kToken, bad); }),
              "Device info string contains invalid characters");
  }
}

TEST(Packet, IsReadAndNamedByItsOpcode) {
  const struct {
    uint8_t opCode;
    Bytes payload;
    int readers;
    std::string name, text;
  } rows[] = {
      {0x01, kConfig, 1, "Get Configuration", ""},
      {0x02, kConfig, 1, "Set Configuration",
       ", IP: 1.2.3.4, Gateway: 5.6.7.8, SubnetMask: 9.10.11.12, DHCP: Enabled"},
      {0x03, kConfig, 0, "Reset Configuration", ""},
      {0x04, {2, 'a', 'b', 0}, 8, "Set Device Info", ", Device Info: \"ab\""},
      {0x21, kReply, 0, "Discover Request", ""},
      {0x81, {37, 0}, 2, "Result", ", ResultCode: CommandNotProcessable"},
      {0x82, Bytes(13), 1, "Configuration",
       ", IP: 0.0.0.0, Gateway: 0.0.0.0, SubnetMask: 0.0.0.0, DHCP: Disabled"},
      {0xA1, kReply, 4, "Discover Reply", ", ProtocolId: 0xb, Port: 4660, Available: Yes, Info: Hello"},
      {0xA1,
       {1, 1, 0, 0, 5, 'u', 'p', 0, '\n', 'x', 0},
       4,
       "Discover Reply",
       ", ProtocolId: 0x1, Port: 0, Available: Yes, Info: up"},
      {0xA2, Bytes(6), 4, "Discover Inform", ", ProtocolId: 0x0, Port: 0, Available: No, Info: "},
      {0x7F, kReply, 0, "Unknown", ""}};
  for (const auto& row : rows) {
    const auto start = "QV_ND_Packet { OpCode: " + row.name +
                       ", Version: 1, SerialNumber: \"SN\", Token: 00112233-4455-6677-8899-AABBCCDDEEFF";
    QV_ND_Packet packet{1, row.opCode, 7, "SN", kToken, row.payload};
    EXPECT_EQ(ToString(packet), start + row.text + " }");
    EXPECT_EQ(Readers(packet), row.readers) << row.name;
    while (!packet.Data.empty()) {
      packet.Data.pop_back();
      EXPECT_EQ(Readers(packet), 0) << row.name << ' ' << packet.Data.size();
      EXPECT_EQ(ToString(packet), start + (row.text.empty() ? " }" : ", Data: INVALID }"));
    }
  }
  std::string names;
  for (const int code : {0, 1, 19, 31, 32, 33, 37, 32765, 32766, 32767})
    names += std::string(ResultCodeName(static_cast<ResultCode>(code))) + ' ';
  EXPECT_EQ(names,
            "Success UnknownCommand InvalidParameter PermissionDenied ProtocolVersionNotSupported Unknown "
            "CommandNotProcessable FeatureNotSupported FeatureNotImplemented Other ");
  EXPECT_EQ(ToString(QV_ND_RawPacket{}), "QV_ND_RawPacket { size: 0}");
  EXPECT_EQ(ToString(QV_ND_RawPacket{{0, 0x0F, 0xAB, 3, 4, 5, 6, 7, 8}}),
            "QV_ND_RawPacket { size: 9, data: 00 0f ab 03 04 05 06 07  08 }");
}

}  // namespace
}  // namespace quorvind
