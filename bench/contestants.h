#pragma once

#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <asio.hpp>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <thread>

#include "far_end.h"
#include "quorvio/quorvio.h"

namespace qvbench {

/// Counts the bytes that a receive thread brings and wakes the one caller that waits for them. The same for
/// every contestant that has such a thread, and cheap for chunks that complete nothing.
class Inbox {
 public:
  /// Receive thread.
  void add(std::size_t bytes) {
    const auto before = received_.fetch_add(bytes);
    const auto awaited = awaited_.load();
    if (before >= awaited || before + bytes < awaited) return;
    const std::lock_guard lock(mutex_);  // the caller has not yet looked at the count, or waits
    complete_.notify_one();
  }

  /// Returns when this many bytes more have come than were awaited before.
  void await(std::size_t bytes) {
    const auto awaited = awaited_.fetch_add(bytes) + bytes;
    std::unique_lock lock(mutex_);
    complete_.wait(lock, [&] { return received_.load() >= awaited; });
  }

  /// As a receive callback.
  static void count(void* inbox, const uint8_t* /*data*/, std::size_t length) {
    static_cast<Inbox*>(inbox)->add(length);
  }

 private:
  std::atomic<std::size_t> received_ = 0;
  std::atomic<std::size_t> awaited_ = 0;
  std::mutex mutex_;  ///< guards nothing but the moment between the waiter's look and its sleep
  std::condition_variable complete_;
};

// Each contestant opens the near end of a line and closes it with its end. send() returns when the system has
// taken all bytes, receive() when that many bytes more have come; both for the one thread that owns it.

/// A receive thread with a callback as applications write it by hand: poll, ask for the number of bytes, read
/// at most 1024 at a time.
class HandWritten {
 public:
  explicit HandWritten(const Address& address) : HandWritten(address, &inbox_, Inbox::count) {}
  HandWritten(const Address& address, void* user, QV_IO_ReceiveCallback callback)
      : fd_(address.open()), user_(user), callback_(callback), thread_([this](const auto& stop) {
          while (!stop.stop_requested()) receiveOnce();
        }) {}

  void send(std::span<const uint8_t> bytes) const { Require(WriteAll(fd_.get(), bytes), "write"); }
  void receive(std::size_t bytes) { inbox_.await(bytes); }

 private:
  void receiveOnce() {
    constexpr int kStopCheckMs = 20;
    pollfd entry{fd_.get(), POLLIN, 0};
    int waiting = 0;
    if (::poll(&entry, 1, kStopCheckMs) <= 0) return;
    Require(::ioctl(fd_.get(), FIONREAD, &waiting) == 0, "FIONREAD");
    std::array<uint8_t, 1024> buffer;
    for (auto left = static_cast<std::size_t>(waiting); left > 0;) {
      const auto got = ReadSome(fd_.get(), std::span(buffer).first(std::min(buffer.size(), left)));
      Require(!got.empty(), "read");
      callback_(user_, got.data(), got.size());
      left -= got.size();
    }
  }

  cppu::UniqueFd fd_;
  void* user_;
  QV_IO_ReceiveCallback callback_;
  Inbox inbox_;
  std::jthread thread_;
};

/// Standalone Asio: one thread runs the context, reads are asynchronous and large.
class AsioStream {
 public:
  explicit AsioStream(const Address& address) : stream_(context_, address.open().release()) {
    readSome();
    thread_ = std::jthread([this] { context_.run(); });
  }
  AsioStream(const AsioStream&) = delete;
  AsioStream& operator=(const AsioStream&) = delete;
  ~AsioStream() { context_.stop(); }

  void send(std::span<const uint8_t> bytes) {
    asio::write(stream_, asio::buffer(bytes.data(), bytes.size()));
  }
  void receive(std::size_t bytes) { inbox_.await(bytes); }

 private:
  void readSome() {
    stream_.async_read_some(asio::buffer(buffer_), [this](const asio::error_code& error, std::size_t got) {
      if (error) return;
      inbox_.add(got);
      readSome();
    });
  }

  asio::io_context context_{1};
  asio::posix::stream_descriptor stream_;
  std::array<uint8_t, kLargePiece> buffer_;
  Inbox inbox_;
  std::jthread thread_;
};

/// A channel of the library by its C functions: quorvio.hpp would be measured as well.
class Library {
 public:
  template <class Address>
  explicit Library(const Address& address) : Library(address, &inbox_, Inbox::count) {}
  template <class Address>
  Library(const Address& address, void* user, QV_IO_ReceiveCallback onReceive) {
    const auto locator = address.locator();
    const std::string options = address.options();
    Require(QV_IO_Open(&handle_, locator.c_str(), options.c_str(), user, onReceive, nullptr) == QV_IO_OK,
            locator.c_str());
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() { QV_IO_Close(handle_, 1); }

  void send(std::span<const uint8_t> bytes) const {
    Require(QV_IO_Send(handle_, bytes.data(), bytes.size()) == QV_IO_OK, "QV_IO_Send");
  }
  void receive(std::size_t bytes) { inbox_.await(bytes); }

 private:
  Inbox inbox_;
  uint32_t handle_ = 0;
};

}  // namespace qvbench
