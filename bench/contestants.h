#pragma once

#include <array>
#include <asio.hpp>
#include <cstddef>
#include <cstdint>
#include <span>
#include <thread>

#include "channel.h"
#include "inbox.h"
#include "line.h"
#include "peer.h"

namespace qvbench {

/// Each contestant opens the near end of a line and closes it with its end. send() returns when the system
/// has taken all bytes, receive() when that many bytes more have come; both for the one thread that owns it.

/// Plain code on a bare descriptor: it receives only while receive() is called.
class BareDescriptor {
 public:
  static constexpr const char* kName = "bare descriptor";
  static constexpr bool kReceivesByItself = false;

  explicit BareDescriptor(const Address& address) : fd_(address.open()) {}
  void send(std::span<const uint8_t> bytes) const;
  void receive(std::size_t bytes);

 private:
  Descriptor fd_;
  std::array<uint8_t, kLargePiece> buffer_;
};

/// A receive thread as applications write it by hand, with a callback.
class ReceiveThread {
 public:
  enum class Style {
    SmallReads,  ///< poll, ask for the number of bytes, read at most 1024 at a time
    LargeReads,  ///< poll, one read of up to 64 KiB
    Blocking,    ///< reads of up to 64 KiB that wait; TCP only, since nothing ends such a read of a terminal
  };
  static constexpr bool kReceivesByItself = true;

  using Callback = void (*)(void* user, const uint8_t* data, std::size_t length);

  ReceiveThread(const Address& address, Style style);                    ///< counts what comes: receive()
  ReceiveThread(const Address& address, Callback callback, void* user);  ///< Style::SmallReads
  ReceiveThread(const ReceiveThread&) = delete;
  ReceiveThread& operator=(const ReceiveThread&) = delete;
  ~ReceiveThread();
  void send(std::span<const uint8_t> bytes) const;
  void receive(std::size_t bytes) { inbox_.await(bytes); }

 private:
  ReceiveThread(const Address& address, Style style, Callback callback, void* user);
  void run(const std::stop_token& stop);
  void readWaiting();
  void readOnce(std::span<uint8_t> buffer);

  Descriptor fd_;
  Style style_;
  Callback callback_;
  void* user_;
  Inbox inbox_;
  std::jthread thread_;
};

struct HandWrittenThread : ReceiveThread {
  static constexpr const char* kName = "hand-written thread";
  explicit HandWrittenThread(const Address& address) : ReceiveThread(address, Style::SmallReads) {}
};
struct LargeReadsThread : ReceiveThread {
  static constexpr const char* kName = "thread, 64-KiB reads";
  explicit LargeReadsThread(const Address& address) : ReceiveThread(address, Style::LargeReads) {}
};
struct BlockingThread : ReceiveThread {
  static constexpr const char* kName = "thread, blocking";
  explicit BlockingThread(const Address& address) : ReceiveThread(address, Style::Blocking) {}
};

/// Standalone Asio: one thread runs the context, reads are asynchronous and large.
class AsioStream {
 public:
  static constexpr const char* kName = "Asio";
  static constexpr bool kReceivesByItself = true;

  explicit AsioStream(const Address& address);
  AsioStream(const AsioStream&) = delete;
  AsioStream& operator=(const AsioStream&) = delete;
  ~AsioStream() { context_.stop(); }
  void send(std::span<const uint8_t> bytes);
  void receive(std::size_t bytes) { inbox_.await(bytes); }

 private:
  void readSome();

  asio::io_context context_{1};
  asio::posix::stream_descriptor stream_;
  std::array<uint8_t, kLargePiece> buffer_;
  Inbox inbox_;
  std::jthread thread_;
};

/// The library.
class Quorvio {
 public:
  static constexpr const char* kName = "libquorvio";
  static constexpr bool kReceivesByItself = true;

  explicit Quorvio(const Address& address);
  void send(std::span<const uint8_t> bytes) const;
  void receive(std::size_t bytes) { inbox_.await(bytes); }

 private:
  Inbox inbox_;
  Channel channel_;
};

}  // namespace qvbench
