#include "peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <span>

#include "processors.h"

namespace qvbench {
namespace {

using Buffer = std::array<uint8_t, kLargePiece>;

/// Empty when the line has ended.
std::span<const uint8_t> ReadSome(int fd, std::span<uint8_t> buffer) {
  const auto got = ::read(fd, buffer.data(), buffer.size());
  return buffer.first(got > 0 ? static_cast<std::size_t>(got) : 0);
}

/// False when the line has ended.
bool WriteAll(int fd, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const auto written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

/// A near end that is closed while the far end writes is an end of the line like any other.
void BlockBrokenPipeSignal() {
  sigset_t brokenPipe;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
}

}  // namespace

Peer::Peer(Line line, Script script) : listener_(line), address_(listener_.address()) {
  thread_ = std::jthread([this, script] {
    RunOnFarProcessor();
    BlockBrokenPipeSignal();
    const auto fd = listener_.accept();
    script(fd.get());
  });
}

void Echo(int fd) {
  Buffer buffer;
  while (true) {
    const auto bytes = ReadSome(fd, buffer);
    if (bytes.empty() || !WriteAll(fd, bytes)) return;
  }
}

void Flood(int fd) {
  const Buffer piece{};
  Buffer request;
  while (!ReadSome(fd, std::span(request).first(1)).empty()) {
    for (std::size_t sent = 0; sent < kBulk; sent += piece.size()) {
      if (!WriteAll(fd, piece)) return;
    }
  }
}

void Swallow(int fd) {
  Buffer buffer;
  std::size_t left = kBulk;
  while (true) {
    const auto bytes = ReadSome(fd, std::span(buffer).first(std::min(buffer.size(), left)));
    if (bytes.empty()) return;
    left -= bytes.size();
    if (left > 0) continue;
    if (!WriteAll(fd, bytes.first(1))) return;
    left = kBulk;
  }
}

}  // namespace qvbench
