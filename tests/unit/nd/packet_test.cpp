#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "nd/packet_text.h"
#include "unit/nd/fake_connection.h"

namespace quorvind {
namespace {

constexpr RequestToken kToken{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                              0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
const Bytes kReply{0x0B, 1, 0x34, 0x12, 5, 'H', 'e', 'l', 'l', 'o', 0};  // one byte short of a multiple of 4

Bytes DiscoverReply(const std::string& serialNumber) {
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
  const std::string rows[][4] = {{"SN", "SN", std::string("SN\0rest", 7), "SN"},  // given, sent, got, read
                                 {longest + 'y', longest, longest + 'y', longest}};
  for (const auto& row : rows) {
    EXPECT_EQ(EncodePacket({0x01020304, 0xA1, 0xAABBCCDD, row[0], kToken, kReply}), DiscoverReply(row[1]));
    QV_ND_Packet packet;
    EXPECT_TRUE(DecodePacket(DiscoverReply(row[2]), packet));
    EXPECT_EQ(packet.SerialNumber, row[3]);
    EXPECT_EQ(EncodePacket(packet), DiscoverReply(row[1]));
  }
  for (std::size_t size = 0; size < 116; ++size) {
    auto datagram = DiscoverReply("SN");
    datagram.resize(size);
    EXPECT_EQ(Decode(datagram), size == 108) << size;
    if (size > 2) datagram[1] = static_cast<uint8_t>(size - 3);
    EXPECT_EQ(Decode(datagram), size >= 96 && size % 4 == 0) << size;
  }
}

TEST(Packet, PayloadsHaveTheirBytesInOrder) {
  const DeviceConfig config{.IP{1, 2, 3, 4}, .SubnetMask{9, 10, 11, 12}, .Gateway{5, 6, 7, 8}, .DHCP = true};
  auto packet = MakeSetConfiguration(7, "SN", kToken, config);
  EXPECT_EQ(packet.Data, (Bytes{1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  packet.Data[0] = 0x80;  // as true as 1
  DeviceConfig read;
  EXPECT_TRUE(ReadConfiguration(packet, read) && read == config);
  packet = MakeSetDeviceInfo(7, "SN", kToken, std::string(70, '~'));
  std::string info;
  EXPECT_TRUE(ReadDeviceInfo(packet, info) && info == std::string(63, '~'));
  packet.Data.resize(80);
  packet.Data[0] = 64;
  EXPECT_FALSE(ReadDeviceInfo(packet, info));
  for (const auto* const bad : {"a\tb", "a\x7F", "\xC3\xA4"})
    EXPECT_EQ(TextOf<InvalidArgumentException>([&] { MakeSetDeviceInfo(7, "SN", kToken, bad); }),
              "Device info string contains invalid characters");
}

TEST(Packet, IsReadByItsOpcode) {
  std::vector<int> readers(256);
  readers[0x01] = readers[0x02] = readers[0x82] = 1;
  readers[0x81] = 2;
  readers[0xA1] = readers[0xA2] = 4;
  readers[0x04] = 8;
  QV_ND_Packet packet{1, 0, 7, "SN", kToken, Bytes(13)};  // zeros, which every reader takes
  for (; packet.OpCode != 255; ++packet.OpCode)
    EXPECT_EQ(Readers(packet), readers[packet.OpCode]) << ToString(packet);
  packet = {1, 0xA1, 7, "SN", kToken, kReply};
  packet.Data.pop_back();  // the terminator
  EXPECT_EQ(Readers(packet), 0);
}

TEST(Packet, SurvivesAnyBytes) {
  constexpr uint8_t kOpCodes[] = {0x01, 0x02, 0x04, 0x81, 0x82, 0xA1, 0xA2, 0x21};
  std::minstd_rand random;  // the same bytes each time
  for (int i = 0; i < 20000; ++i) {
    auto datagram = DiscoverReply("SN");
    datagram.resize(random() % 2 == 0 ? 108 : random() % 200);
    for (auto count = random() % 12; count > 0 && datagram.size() > 16; --count)
      datagram[16 + random() % (datagram.size() - 16)] = static_cast<uint8_t>(random());
    if (datagram.size() < 8) continue;
    datagram[1] = static_cast<uint8_t>(datagram.size() - 3);
    datagram[3] = kOpCodes[random() % std::size(kOpCodes)];
    if (random() % 4 == 0) datagram[random() % 8] ^= 1;
    QV_ND_Packet packet;
    if (!Decode(datagram) || !DecodePacket(datagram, packet)) continue;
    EXPECT_TRUE(Readers(packet) >= 0 && !ToString(packet).empty());
    std::fill(std::find(datagram.begin() + 16, datagram.begin() + 79, 0), datagram.begin() + 80, uint8_t{0});
    EXPECT_EQ(EncodePacket(packet), datagram);  // but for what stood behind the serial number
  }
}

}  // namespace
}  // namespace quorvind
