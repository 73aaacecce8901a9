#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "quorvio/quorvio.h"
#include "support/wait.h"

namespace qvtest {

/// Opens a channel through the exported functions, records what its callbacks bring, and closes it at the
/// end.
class Channel {
 public:
  enum class Notices { Recorded, NoCallback };

  explicit Channel(const std::string& locator, const std::string& options = "",
                   Notices notices = Notices::Recorded)
      : result_(QV_IO_Open(&handle_, locator.c_str(), options.c_str(), this, &Channel::onReceive,
                           notices == Notices::Recorded ? &Channel::onError : nullptr)) {
    open_ = result_ == QV_IO_OK;
  }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;
  ~Channel() {
    close(1);
    locked([] {});  // after a close without wait: what the ended receive thread did comes before this
  }

  [[nodiscard]] uint32_t result() const { return result_; }
  [[nodiscard]] uint32_t handle() const { return handle_; }

  uint32_t close(uint32_t wait) {
    if (!open_) return QV_IO_ERROR_INVALID_HANDLE;
    open_ = false;
    return QV_IO_Close(handle_, wait);
  }

  [[nodiscard]] uint32_t send(std::string_view text) const {
    return QV_IO_Send(handle_, text.data(), text.size());
  }

  /// Called on the receive thread for every chunk, before it is recorded. Set before bytes can arrive.
  std::function<void(std::string_view)> onChunk;

  [[nodiscard]] std::string received() const {
    return locked([&] { return bytes_; });
  }
  [[nodiscard]] std::size_t receivedSize() const {
    return locked([&] { return bytes_.size(); });
  }
  [[nodiscard]] int notices(uint32_t code) const {
    return locked([&] { return notices_.contains(code) ? notices_.at(code) : 0; });
  }
  [[nodiscard]] int failedReads() const {
    return locked([&] { return failedReads_; });
  }
  [[nodiscard]] std::size_t largestChunk() const {
    return locked([&] { return largestChunk_; });
  }

  [[nodiscard]] bool receives(std::string_view text) const {
    return Eventually([&] { return received() == text; });
  }
  [[nodiscard]] bool isNotified(uint32_t code, int times = 1) const {
    return Eventually([&] { return notices(code) >= times; });
  }

 private:
  template <class Action>
  std::invoke_result_t<Action> locked(Action action) const {
    const std::lock_guard lock(mutex_);
    return action();
  }

  static void onReceive(void* self, const uint8_t* data, std::size_t length) {
    auto& channel = *static_cast<Channel*>(self);
    if (length == static_cast<std::size_t>(-1)) return channel.locked([&] { ++channel.failedReads_; });
    const std::string_view chunk(reinterpret_cast<const char*>(data), length);
    if (channel.onChunk) channel.onChunk(chunk);
    channel.locked([&] {
      channel.bytes_ += chunk;
      channel.largestChunk_ = std::max(channel.largestChunk_, length);
    });
  }

  static void onError(void* self, uint32_t code) {
    auto& channel = *static_cast<Channel*>(self);
    channel.locked([&] { ++channel.notices_[code]; });
  }

  mutable std::mutex mutex_;  ///< guards what the callbacks record
  std::string bytes_;
  std::map<uint32_t, int> notices_;
  int failedReads_ = 0;
  std::size_t largestChunk_ = 0;

  uint32_t handle_ = 0;
  uint32_t result_;
  bool open_ = false;
};

/// The speed that tests give where it does not matter.
inline constexpr const char* kAnySpeed = "baudrate 115200";

}  // namespace qvtest
