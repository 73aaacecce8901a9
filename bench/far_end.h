#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <thread>

#include "bench.h"

namespace qvbench {

enum class Line { Tcp, Terminal };

/// Where the near end of a line is opened: a port on loopback, or the path of a pseudo terminal.
struct Address {
  uint16_t port = 0;
  std::string path;  ///< empty: TCP

  [[nodiscard]] std::string locator() const;
  [[nodiscard]] const char* options() const { return path.empty() ? "" : "baudrate 230400"; }

  /// A blocking descriptor of the near end, as plain code opens it: a terminal is raw, a socket as it comes.
  [[nodiscard]] cppu::UniqueFd open() const;
};

/// The far end of a line before the near end is there.
class Listener {
 public:
  explicit Listener(Line line);

  [[nodiscard]] const Address& address() const { return address_; }

  /// Waits for the near end of a TCP line; a pseudo terminal is its own far end and can be taken once.
  [[nodiscard]] cppu::UniqueFd accept();

 private:
  Address address_;
  cppu::UniqueFd fd_;
};

/// The far end of a line, played by a thread until the near end is closed. It must outlive the near end.
/// Keeps the calling thread, and those that it starts, on one processor and its own thread on another one:
/// where the scheduler puts threads would otherwise weigh more than what they do.
class FarEnd {
 public:
  /// What it does with its descriptor; returns when the line has ended.
  using Script = void (*)(int fd);

  FarEnd(Line line, Script script);

  [[nodiscard]] const Address& address() const { return listener_.address(); }

 private:
  Listener listener_;
  std::jthread thread_;
};

/// The most bytes of one read or write of the far end, and of plain code that works in large pieces.
inline constexpr std::size_t kLargePiece = 65536;

/// What Flood sends for each byte that it receives, and what Swallow takes before it answers one byte.
inline constexpr std::size_t kBulk = std::size_t{512} << 20U;

void Echo(int fd);
void Flood(int fd);
void Swallow(int fd);

/// Plain blocking code. One read; empty when the line has ended.
std::span<const uint8_t> ReadSome(int fd, std::span<uint8_t> buffer);
/// False when the line has ended.
bool WriteAll(int fd, std::span<const uint8_t> bytes);

}  // namespace qvbench
