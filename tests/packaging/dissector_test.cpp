// The Wireshark dissector marks exactly the datagrams that the library ignores, and names opcodes and results
// as it does.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nd/packet.h"
#include "nd/packet_text.h"

namespace quorvind {
namespace {

constexpr std::size_t kHeaderSize = 96;

/// An input cut to every length in turn, with the length field right, and with each opcode.
void AppendVariants(Bytes input, std::vector<Bytes>& datagrams) {
  for (; input.size() >= kHeaderSize; input.pop_back()) {
    const auto length = input.size() - 3;
    input[1] = static_cast<uint8_t>(length);
    input[2] = static_cast<uint8_t>(length >> 8U);
    for (const auto opCode : {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x21, 0x81, 0x82, 0x83, 0xA1, 0xA2, 0xA3}) {
      input[3] = static_cast<uint8_t>(opCode);
      datagrams.push_back(input);
    }
  }
}

std::vector<Bytes> Datagrams() {
  std::vector<Bytes> datagrams;
  for (const auto& file : std::filesystem::directory_iterator(CORPUS)) {
    std::ifstream in(file.path(), std::ios::binary);
    datagrams.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    AppendVariants(datagrams.back(), datagrams);
  }
  for (unsigned code = 0; code <= 0x8000; code += code == 0x40 ? 0x7F80 : 1)  // no names in between
    datagrams.push_back(EncodePacket(MakeResult(1, "", {}, static_cast<ResultCode>(code))));
  for (std::size_t at = 0; at < kHeaderSize; ++at) {
    datagrams.push_back(EncodePacket(MakeDiscoverRequest(kAnyDeviceType, "7", {})));
    datagrams.back()[at] ^= 1U;
  }
  return datagrams;
}

/// As UDP over IPv4, in the format of libpcap.
void WriteCapture(const std::string& path, const std::vector<Bytes>& datagrams) {
  cppu::ByteWriter out;
  for (const uint32_t word : {0xA1B2C3D4U, 0x00040002U, 0U, 0U, 0xFFFFU, 228U}) out.le(word);
  for (const auto& datagram : datagrams) {
    Bytes headers{0x45, 0, 0,   0,   0,   0,   0,    0,    64,   17,   0, 0, 127, 0,
                  0,    1, 127, 255, 255, 255, 0xFE, 0x57, 0xFE, 0x57, 0, 0, 0,   0};
    const auto writeSize = [&](std::size_t at, std::size_t size) {
      headers[at] = static_cast<uint8_t>(size >> 8U);
      headers[at + 1] = static_cast<uint8_t>(size);
    };
    const auto size = headers.size() + datagram.size();
    writeSize(2, size);
    writeSize(24, datagram.size() + 8);
    for (const std::size_t word : {std::size_t{0}, std::size_t{0}, size, size})
      out.le(static_cast<uint32_t>(word));
    out.raw(headers);
    out.raw(datagram);
  }
  const auto bytes = out.take();
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

/// What a shell command prints.
std::vector<std::string> LinesOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "r"),
                                                     ::pclose);  // NOLINT(cert-env33-c)
  std::vector<std::string> lines;
  std::string line;
  for (int character = 0; (character = std::fgetc(output.get())) != EOF;) {
    line += static_cast<char>(character);
    if (character == '\n') lines.push_back(std::exchange(line, {}));
  }
  return lines;
}

/// How a line for a datagram begins and ends: a mark or none, a tab, the opcode; the payload as in the
/// library's log.
struct Wanted {
  explicit Wanted(const Bytes& datagram) {
    QV_ND_Packet packet;
    if (!DecodePacket(datagram, packet)) return;
    const auto text = ToString(packet);
    const auto name = text.substr(text.find(": ") + 2);
    const auto payload = text.substr(text.find("Token: ") + 43);
    begin = "\t" + name.substr(0, name.find(','));
    end = payload.substr(0, payload.size() - 2) + "\n";
    if (end != ", Data: INVALID\n") return;
    begin.insert(0, "1");
    end = "[Malformed: bad payload]\n";
  }

  std::string begin = "1\t[Malformed";
  std::string end = "\n";
};

TEST(Dissector, MarksWhatTheLibraryIgnoresAndNamesTheRest) {
  if (LinesOf("command -v tshark").empty()) GTEST_SKIP() << "tshark is not installed";
  const auto datagrams = Datagrams();
  const auto capture = ::testing::TempDir() + "quorvio-dissector-test.pcap";
  WriteCapture(capture, datagrams);
  const auto lines = LinesOf("tshark -X lua_script:" DISSECTOR " -r " + capture +
                             " -T fields -e quorvio.malformed -e _ws.col.Info 2>/dev/null");
  std::filesystem::remove(capture);
  ASSERT_EQ(lines.size(), datagrams.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const Wanted wanted(datagrams[i]);
    ASSERT_TRUE(lines[i].starts_with(wanted.begin) && lines[i].ends_with(wanted.end))
        << lines[i] << wanted.begin << " ..." << wanted.end << ToString(QV_ND_RawPacket{datagrams[i]});
  }
}

}  // namespace
}  // namespace quorvind
