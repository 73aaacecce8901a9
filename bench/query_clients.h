#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>

#include "channel.h"
#include "contestants.h"
#include "line.h"
#include "quorvio/quorvio.hpp"

namespace qvbench {

inline constexpr std::chrono::seconds kQueryPatience{10};

/// What applications write by hand to ask and wait: received text under a lock.
class AnswerLines {
 public:
  /// Receive thread.
  void add(std::string_view bytes) {
    {
      const std::lock_guard lock(mutex_);
      received_ += bytes;
    }
    arrived_.notify_one();
  }

  void clear() {
    const std::lock_guard lock(mutex_);
    received_.clear();
  }

  std::string next() {
    std::unique_lock lock(mutex_);
    std::size_t end = 0;
    const auto complete = [&] { return (end = received_.find('\n')) != std::string::npos; };
    Require(arrived_.wait_for(lock, kQueryPatience, complete), "answer");
    auto answer = received_.substr(0, end);
    received_.erase(0, end + 1);
    return answer;
  }

 private:
  std::mutex mutex_;  ///< guards received_
  std::condition_variable arrived_;
  std::string received_;
};

inline std::span<const uint8_t> BytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

/// A client on a bare descriptor, with a receive thread.
class HandWrittenClient {
 public:
  static constexpr const char* kName = HandWrittenThread::kName;

  explicit HandWrittenClient(const Address& address) : thread_(address, onReceive, &lines_) {}

  std::string ask(std::string_view request) {
    lines_.clear();
    thread_.send(BytesOf(request));
    return lines_.next();
  }

 private:
  static void onReceive(void* lines, const uint8_t* data, std::size_t length) {
    static_cast<AnswerLines*>(lines)->add({reinterpret_cast<const char*>(data), length});
  }

  AnswerLines lines_;
  ReceiveThread thread_;
};

/// A client on the C functions.
class CFunctionsClient {
 public:
  static constexpr const char* kName = "C functions, by hand";

  explicit CFunctionsClient(const Address& address) : channel_(address, &lines_, onReceive) {}

  std::string ask(std::string_view request) {
    lines_.clear();
    Require(channel_.send(BytesOf(request)) == QV_IO_OK, "QV_IO_Send");
    return lines_.next();
  }

 private:
  static void onReceive(void* lines, const uint8_t* data, std::size_t length) {
    static_cast<AnswerLines*>(lines)->add({reinterpret_cast<const char*>(data), length});
  }

  AnswerLines lines_;
  Channel channel_;
};

/// quorvio.hpp.
class QueryClient {
 public:
  static constexpr const char* kName = Quorvio::kName;

  explicit QueryClient(const Address& address)
      : channel_(address.locator(), quorvio::Options::fromLines(address.options())) {}

  std::string ask(std::string_view request) { return channel_.query(request, "\n", kQueryPatience); }

 private:
  quorvio::Channel channel_;
};

}  // namespace qvbench
