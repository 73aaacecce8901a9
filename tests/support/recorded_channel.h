#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "quorvio/quorvio.h"
#include "support/wait.h"

namespace qvtest {

/// A handle that records what the C callbacks get: pieces and every notice, of which quorvio::Channel shows
/// only the bytes and the first notice. Closed at the end.
class RecordedChannel {
 public:
  explicit RecordedChannel(const std::string& locator, const std::string& options = "",
                           bool hasErrorCallback = true)
      : result_(QV_IO_Open(&handle_, locator.c_str(), options.c_str(), this, onReceive,
                           hasErrorCallback ? onError : nullptr)) {}
  RecordedChannel(const RecordedChannel&) = delete;
  RecordedChannel& operator=(const RecordedChannel&) = delete;
  ~RecordedChannel() {
    if (result_ == QV_IO_OK && !closed_) close(1);
    const std::lock_guard lock(mutex_);  // after a close without wait: the last callback has returned
  }

  [[nodiscard]] uint32_t result() const { return result_; }
  [[nodiscard]] uint32_t handle() const { return handle_; }
  [[nodiscard]] uint32_t send(std::string_view text) const {
    return QV_IO_Send(handle_, text.data(), text.size());
  }
  uint32_t close(uint32_t wait) {
    closed_ = true;
    return QV_IO_Close(handle_, wait);
  }

  /// Called on the receive thread for every piece, before it is recorded. Set before bytes can arrive.
  std::function<void(std::string_view)> onPiece;

  [[nodiscard]] std::size_t receivedSize() const {
    const std::lock_guard lock(mutex_);
    return bytes_.size();
  }
  [[nodiscard]] int notices(uint32_t code) const {
    const std::lock_guard lock(mutex_);
    return notices_.contains(code) ? notices_.at(code) : 0;
  }
  [[nodiscard]] std::size_t largestPiece() const {
    const std::lock_guard lock(mutex_);
    return largestPiece_;
  }

  /// Waits until so many bytes are there; whether they are these.
  [[nodiscard]] bool receives(std::string_view text) const {
    const bool complete = Eventually([&] { return receivedSize() >= text.size(); });
    const std::lock_guard lock(mutex_);
    return complete && bytes_ == text;
  }
  [[nodiscard]] bool isNotified(uint32_t code, int times = 1) const {
    return Eventually([&] { return notices(code) >= times; });
  }

 private:
  static void onReceive(void* self, const uint8_t* data, std::size_t length) {
    if (length == static_cast<std::size_t>(-1)) return;  // a failed read, without an error callback
    auto& channel = *static_cast<RecordedChannel*>(self);
    const std::string_view piece(reinterpret_cast<const char*>(data), length);
    if (channel.onPiece) channel.onPiece(piece);
    const std::lock_guard lock(channel.mutex_);
    channel.bytes_ += piece;
    channel.largestPiece_ = std::max(channel.largestPiece_, length);
  }

  static void onError(void* self, uint32_t code) {
    auto& channel = *static_cast<RecordedChannel*>(self);
    const std::lock_guard lock(channel.mutex_);
    ++channel.notices_[code];
  }

  mutable std::mutex mutex_;  ///< guards what the callbacks record
  std::string bytes_;
  std::map<uint32_t, int> notices_;
  std::size_t largestPiece_ = 0;

  uint32_t handle_ = 0;
  uint32_t result_;
  bool closed_ = false;
};

}  // namespace qvtest
