#ifndef QUORVIO_DETAIL_DEVICE_WATCH_HPP
#define QUORVIO_DETAIL_DEVICE_WATCH_HPP

#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quorvio/detail/inbox.hpp"
#include "quorvio/detail/listing.hpp"
#include "quorvio/detail/registry.hpp"

namespace quorvio {

/** A network device has appeared or become available (found), or is gone or busy. */
struct DeviceEvent {
  bool found = false;  ///< false: gone or busy
  Device device;       ///< as it was heard last
};

namespace detail {

/// The events that nobody has asked for yet, as the texts that the library gives.
class WatchState {
 public:
  struct Event {
    bool found;
    std::string device;
  };

  WatchState() = default;
  WatchState(const WatchState&) = delete;
  WatchState& operator=(const WatchState&) = delete;

  /// The library's callback, with its global lock held: only copies.
  static void onEvent(void* number, uint32_t type, const QV_IO_Event* event) noexcept {
    const auto state = Registry<WatchState>::find(number);
    if (!state || type == QV_IO_EVENT_ERROR) return;
    try {
      state->add({type == QV_IO_EVENT_DEVICE_FOUND, textOut("event", [&](char* buffer, std::size_t* size) {
                    return QV_IO_GetDiscoveryEventData(event, "include-all", buffer, size);
                  })});
    } catch (const std::exception&) {  // no memory: the library's thread must go on
      state->loseEvent();
    }
  }

  void add(Event event) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      lost_ = lost_ || events_.size() == kMost;
      if (events_.size() == kMost) events_.pop_front();
      events_.push_back(std::move(event));
    }
    changed_.notify_all();
  }

  void loseEvent() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      lost_ = true;
    }
    changed_.notify_all();
  }

  /// False if it was closed before.
  bool close() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (std::exchange(closed_, true)) return false;
    }
    changed_.notify_all();
    return true;
  }

  std::optional<Event> next(Duration timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_until(lock, deadlineAfter(timeout), [&] { return !events_.empty() || lost_ || closed_; });
    if (closed_) throw Error(Errc::invalidHandle, "the watch is closed");
    if (std::exchange(lost_, false)) throw Error(Errc::eventsLost, "watch devices");
    if (events_.empty()) return {};
    auto event = std::move(events_.front());
    events_.pop_front();
    return event;
  }

  [[nodiscard]] bool isOfThisProcess() const { return process_ == ::getpid(); }

  void* number = nullptr;

 private:
  static constexpr std::size_t kMost = 16384;  // an event for each device that the library keeps

  const pid_t process_ = ::getpid();
  std::mutex mutex_;  ///< guards what follows; under the library's global lock
  std::condition_variable changed_;
  std::deque<Event> events_;
  bool lost_ = false;
  bool closed_ = false;
};

/// The process whose one watch is there; 0: none.
inline std::atomic<pid_t>& watchingProcess() {
  static std::atomic<pid_t> process{0};
  return process;
}

}  // namespace detail

/** Watches network devices appear and disappear. Only one in a process, since the library has one event
 * callback and one list of watched interfaces; both belong to the watch while it is there. Not to be created,
 * closed or destroyed in an event callback of one's own. */
class DeviceWatch {
 public:
  /** @param interfaces  "network:ADDRESS" of local interfaces, or "network:all"
   * @throws Error  Errc::watchExists; Errc::invalidArgument: an interface cannot be watched */
  explicit DeviceWatch(const std::vector<std::string>& interfaces) {
    Options options;
    for (const auto& interface : interfaces) options.add("discovery-iface", interface);
    auto state = std::make_shared<detail::WatchState>();
    auto watching = detail::watchingProcess().load();
    if (watching == ::getpid() || !detail::watchingProcess().compare_exchange_strong(watching, ::getpid()))
      throw Error(Errc::watchExists, "watch devices");
    state->number = detail::Registry<detail::WatchState>::add(state);
    QV_IO_SetEventCallback(detail::WatchState::onEvent, state->number);
    state_ = std::move(state);
    const auto result = QV_IO_SetGlobalOptions(options.text().c_str());
    if (result != QV_IO_OK) close();
    detail::check(result, "watch devices");
  }

  /** The other is closed afterwards. */
  DeviceWatch(DeviceWatch&& other) noexcept = default;
  /** Closes the watch that was here. */
  DeviceWatch& operator=(DeviceWatch&& other) noexcept {
    DeviceWatch moved(std::move(other));
    std::swap(state_, moved.state_);
    return *this;
  }
  DeviceWatch(const DeviceWatch&) = delete;
  DeviceWatch& operator=(const DeviceWatch&) = delete;
  ~DeviceWatch() { close(); }

  /** The next event, in the order in which they came; none after the time-out.
   * @throws Error  Errc::eventsLost, once, when more than 16,384 events have waited or memory was
   * short: some are gone, list the devices afresh; Errc::invalidHandle: the watch is closed */
  [[nodiscard]] std::optional<DeviceEvent> next(Duration timeout) const {
    if (!state_ || !state_->isOfThisProcess()) throw Error(Errc::invalidHandle, "the watch is closed");
    const auto event = state_->next(timeout);
    if (!event) return {};
    return DeviceEvent{event->found, detail::readDevice(event->device)};
  }

  /** Watches nothing from now on, and wakes a thread that waits in next. */
  void close() noexcept {
    if (!state_ || !state_->isOfThisProcess() || !state_->close()) return;
    QV_IO_SetEventCallback(nullptr, nullptr);
    QV_IO_SetGlobalOptions("discovery-iface network:none");
    detail::Registry<detail::WatchState>::remove(state_->number);
    detail::watchingProcess() = 0;
  }

 private:
  std::shared_ptr<detail::WatchState> state_;
};

}  // namespace quorvio

#endif
