#ifndef QUORVIO_DETAIL_CHANNEL_STATE_HPP
#define QUORVIO_DETAIL_CHANNEL_STATE_HPP

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>

#include "quorvio/detail/error.hpp"
#include "quorvio/detail/inbox.hpp"
#include "quorvio/detail/options.hpp"
#include "quorvio/detail/registry.hpp"

namespace quorvio {

/** Received bytes, at least one, valid during the call only. */
using OnReceive = std::function<void(std::string_view bytes)>;

/** Errc::connectionLost or Errc::receiveFailed; once until bytes come again. */
using OnLost = std::function<void(std::error_code why)>;

namespace detail {

struct ChannelFunctions {
  OnReceive onReceive;
  OnLost onLost;
};

/// What one channel shares with its callbacks: an inbox, or the functions of the application. Owned by the
/// Channel, the registry while it is open, and a running callback.
class ChannelState {
 public:
  using States = Registry<ChannelState>;

  explicit ChannelState(std::size_t bufferSize) : inbox_(std::make_shared<Inbox>(bufferSize)) {}
  explicit ChannelState(ChannelFunctions functions) : functions_(std::move(functions)) {}

  static std::shared_ptr<ChannelState> open(std::shared_ptr<ChannelState> state, std::string_view locator,
                                            const Options& options) {
    const auto checked = textWithout(kZeroByte, locator, Errc::invalidLocator);
    state->number_ = States::add(state);
    const auto result =
        QV_IO_Open(&state->handle_, checked.c_str(), options.text().c_str(), state->number_,
                   state->inbox_ ? storeBytes : passBytes, state->inbox_ ? storeLoss : passLoss);
    if (result != QV_IO_OK) States::remove(state->number_);
    state->begin(result == QV_IO_OK ? Phase::open : Phase::closed);
    check(result, "cannot open " + checked);
    return state;
  }

  /// Any thread, as often as it likes. On return no callback runs any more, unless this is one (see mayWait).
  static void close(const std::shared_ptr<ChannelState>& state) {
    if (state->isOfThisProcess()) return state->close();
    States::add(state);  // never destroyed here, where threads that do not exist may hold its locks
  }

  /// Runs an action on the handle.
  template <class Action>
  uint32_t use(Action action) {
    if (!isOfThisProcess()) return QV_IO_ERROR_INVALID_HANDLE;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (phase_ != Phase::open) return QV_IO_ERROR_INVALID_HANDLE;
      ++users_;
    }
    const auto result = action(handle_);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (--users_ == 0 && phase_ != Phase::open) changed_.notify_all();
    return result;
  }

  std::shared_ptr<Inbox> inbox() {
    if (!isOfThisProcess()) throw Error(Errc::invalidHandle, "the channel of a parent process");
    if (!inbox_) throw Error(Errc::notSupported, "a channel with callbacks has nothing to read");
    return inbox_;
  }

  [[nodiscard]] bool isOpen() {
    if (!isOfThisProcess()) return false;
    const std::lock_guard<std::mutex> lock(mutex_);
    return phase_ == Phase::open;
  }

 private:
  enum class Phase { opening, open, closing, closed };

  [[nodiscard]] bool isOfThisProcess() const { return process_ == ::getpid(); }

  // Callbacks of the library. An exception ends the process here, as it may not pass through C.

  static void storeBytes(void* number, const uint8_t* data, std::size_t length) noexcept {
    const auto state = States::find(number);
    if (state) state->inbox_->add(bytesOf(data, length));
  }

  static void storeLoss(void* number, uint32_t result) noexcept {
    const auto state = States::find(number);
    if (state) state->inbox_->lose(result);
  }

  static void passBytes(void* number, const uint8_t* data, std::size_t length) noexcept {
    const auto state = States::find(number);
    if (!state || length == 0) return;
    state->run([&] {
      state->lost_ = false;
      if (state->functions_.onReceive) state->functions_.onReceive(bytesOf(data, length));
    });
  }

  static void passLoss(void* number, uint32_t result) noexcept {
    const auto state = States::find(number);
    if (!state) return;
    state->run([&] {
      const bool known = std::exchange(state->lost_, true);
      if (!known && state->functions_.onLost)
        state->functions_.onLost(make_error_code(static_cast<Errc>(result)));
    });
  }

  static std::string_view bytesOf(const uint8_t* data, std::size_t length) {
    return {reinterpret_cast<const char*>(data), length};
  }

  void begin(Phase phase) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      phase_ = phase;
    }
    changed_.notify_all();
  }

  /// Runs a function of the application, which may close, move or destroy the channel.
  template <class Action>
  void run(Action action) {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      changed_.wait(lock, [&] { return phase_ != Phase::opening; });  // a close would not know the handle
      if (phase_ != Phase::open) return;
      running_ = true;
    }
    running() = this;
    action();
    if (!isOfThisProcess()) return;  // the application has forked; the thread ends with this callback
    running() = nullptr;
    ChannelFunctions ended;
    std::unique_lock<std::mutex> lock(mutex_);
    if (phase_ != Phase::open) ended = std::exchange(functions_, {});
    lock.unlock();
    ended = {};  // before those that wait go on: what the functions hold is gone when they do
    lock.lock();
    running_ = false;
    changed_.notify_all();
  }

  /// The channel whose callback runs on this thread; null on other threads.
  static ChannelState*& running() {
    thread_local ChannelState* state = nullptr;
    return state;
  }

  void close() {
    auto* const closer = running();
    const bool wait = closer != this && mayWait(closer);
    std::unique_lock<std::mutex> lock(mutex_);
    if (phase_ == Phase::open) {
      closeHandle(lock, wait);
    } else if (wait) {
      changed_.wait(lock, [&] { return phase_ == Phase::closed; });
    }
    if (wait) changed_.wait(lock, [&] { return !running_; });
    ChannelFunctions ended;
    if (!running_) ended = std::exchange(functions_, {});
    lock.unlock();
    if (closer != nullptr) States::locked([&] { closer->waitsFor_ = nullptr; });
  }

  void closeHandle(std::unique_lock<std::mutex>& lock, bool wait) {
    phase_ = Phase::closing;
    if (inbox_) inbox_->close();
    // The number is free once the handle is closed, and a send that is about to begin would reach the next
    // channel with that number. One that takes longer than this has long begun; the close ends it.
    changed_.wait_for(lock, std::chrono::milliseconds(100), [&] { return users_ == 0; });
    lock.unlock();
    QV_IO_Close(handle_, wait ? 1 : 0);
    States::remove(number_);
    lock.lock();
    phase_ = Phase::closed;
    changed_.notify_all();
  }

  /// Whether this may be waited for: not by a callback for which this one's callback waits itself, directly
  /// or through others. Notes that the closer waits.
  bool mayWait(ChannelState* closer) {
    if (closer == nullptr) return true;
    return States::locked([&] {
      for (const auto* state = this; state != nullptr; state = state->waitsFor_) {
        if (state == closer) return false;
      }
      closer->waitsFor_ = this;
      return true;
    });
  }

  const pid_t process_ = ::getpid();
  const std::shared_ptr<Inbox> inbox_;  ///< null: a channel with functions
  void* number_ = nullptr;
  uint32_t handle_ = 0;
  bool lost_ = false;                 ///< receive thread only
  ChannelState* waitsFor_ = nullptr;  ///< guarded by the registry: its callback closes that channel

  /// Guards what follows. Taken before the inbox's, never held in a function of the application.
  std::mutex mutex_;
  std::condition_variable changed_;
  Phase phase_ = Phase::opening;
  int users_ = 0;               ///< threads inside use()
  bool running_ = false;        ///< a function of the application
  ChannelFunctions functions_;  ///< while running_, only the receive thread touches it
};

}  // namespace detail
}  // namespace quorvio

#endif
