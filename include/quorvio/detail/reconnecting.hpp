#ifndef QUORVIO_DETAIL_RECONNECTING_HPP
#define QUORVIO_DETAIL_RECONNECTING_HPP

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "quorvio/detail/channel.hpp"

namespace quorvio {

/** How soon a lost device is opened again: after `first`, then twice that, and so on up to `longest`. A
 * connection that has lasted longer than `longest` begins at `first` again. */
struct Backoff {
  Duration first = std::chrono::milliseconds(100);  ///< before the first attempt
  Duration longest = std::chrono::seconds(5);       ///< between attempts
};

/** An empty code: the device is open (again). Else: it was lost, and why. */
using OnChange = std::function<void(std::error_code why)>;

namespace detail {

/// For threads started in this scope: the application's signal handlers run on its own threads.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all{};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

/// The open channel, and the thread that keeps it open.
class Link {
 public:
  Link(std::string locator, Options options, OnChange onChange, Backoff backoff)
      : locator_(std::move(locator)),
        options_(std::move(options)),
        onChange_(std::move(onChange)),
        backoff_(backoff) {}

  /// The first attempt; the thread goes on from there.
  static void start(const std::shared_ptr<Link>& link) {
    link->open();
    link->number_ = Registry<Link>::add(link);
    try {
      const SignalsBlocked inherited;
      link->thread_ = std::thread([link] { link->run(); });
    } catch (const std::exception&) {
      Registry<Link>::remove(link->number_);
      throw;
    }
  }

  /// Ends the attempts and wakes everybody.
  void end() {
    std::shared_ptr<Channel> channel;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ended_ = true;
      channel = std::exchange(channel_, nullptr);
    }
    changed_.notify_all();
    if (channel) channel->close();
  }

  /// The owner's destructor.
  static void release(const std::shared_ptr<Link>& link) {
    if (!link->isOfThisProcess()) {
      Registry<Link>::add(link);  // never destroyed here: its thread does not exist
      return;
    }
    link->end();
    const bool inside = link->thread_.get_id() == std::this_thread::get_id();
    inside ? link->thread_.detach() : link->thread_.join();
    Registry<Link>::remove(link->number_);
  }

  [[nodiscard]] bool isOfThisProcess() const { return process_ == ::getpid(); }

  std::shared_ptr<Channel> channel() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (ended_) throw Error(Errc::invalidHandle, "the connection is closed");
    if (!channel_) throw Error(Errc::connectionLost, locator_);
    return channel_;
  }

  std::error_code waitOpen(Duration timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_until(lock, deadlineAfter(timeout), [&] { return channel_ || ended_; });
    if (ended_) throw Error(Errc::invalidHandle, "the connection is closed");
    return channel_ ? std::error_code() : failure_;
  }

 private:
  using Clock = std::chrono::steady_clock;

  void run() noexcept {
    const auto first = std::max(backoff_.first, Duration(1));
    auto delay = first;
    while (!ended()) {
      const auto began = Clock::now();
      stayOpen();
      if (Clock::now() - began > backoff_.longest) delay = first;
      rest(delay);
      delay = delay > backoff_.longest / 2 ? std::max(backoff_.longest, first) : 2 * delay;
      tryOpen();
    }
  }

  /// Returns when the channel is lost, at once if there is none.
  void stayOpen() {
    std::shared_ptr<Channel> channel;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      channel = channel_;
    }
    if (!channel) return;
    std::optional<std::error_code> why;
    try {
      while (!why) why = channel->waitLost(Duration::max());
    } catch (const Error&) {
      return;  // ended
    }
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      channel_ = nullptr;
      failure_ = *why;
    }
    channel->close();
    if (!ended() && onChange_) onChange_(*why);
  }

  void rest(Duration delay) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_until(lock, deadlineAfter(delay), [&] { return ended_; });
  }

  void tryOpen() {
    if (ended()) return;
    try {
      open();
    } catch (const Error&) {
      return;  // the device is there, and refuses now what it took before; it may take it again
    }
  }

  /// Throws only what no other attempt can change.
  void open() {
    try {
      auto channel = std::make_shared<Channel>(locator_, options_);
      const std::lock_guard<std::mutex> lock(mutex_);
      if (ended_) return;
      channel_ = std::move(channel);
      failure_.clear();
    } catch (const Error& error) {
      const std::lock_guard<std::mutex> lock(mutex_);
      failure_ = error.code();
      if (error.code() == Errc::invalidLocator || error.code() == Errc::invalidArgument) throw;
      return;
    }
    changed_.notify_all();
    if (onChange_) onChange_({});
  }

  bool ended() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return ended_;
  }

  const pid_t process_ = ::getpid();
  const std::string locator_;
  const Options options_;
  const OnChange onChange_;
  const Backoff backoff_;
  std::thread thread_;
  void* number_ = nullptr;

  std::mutex mutex_;  ///< guards what follows; no other lock is taken under it
  std::condition_variable changed_;
  std::shared_ptr<Channel> channel_;  ///< null: not open
  std::error_code failure_;           ///< why not
  bool ended_ = false;
};

}  // namespace detail

/** A device that is opened again whenever its link is lost, by a thread of its own.
 *
 * While it is not open every member throws Errc::connectionLost at once: nothing is queued, and nothing is
 * sent twice. A send or query that fails in a loss throws as well; whether the device has carried it out is
 * for the application to ask. What was received over a lost connection and not read is gone.
 *
 * A loss is what the library reports as such: an unplugged adapter or a peer that closed its connection, but
 * not a network cable that was pulled, after which only the answers fail to come. */
class Reconnecting {
 public:
  /** Makes the first attempt before it returns. A device that cannot be opened now is opened later.
   * @param locator   as QV_IO_Open
   * @param options   as QV_IO_Open
   * @param onChange  may be empty. Called once for each time that the device was opened or lost, on the
   * thread of this object (the first attempt: the caller's), without locks; may use and destroy this object.
   * Must not throw
   * @param backoff   pauses between attempts
   * @throws Error  Errc::invalidLocator, Errc::invalidArgument: no attempt can succeed */
  explicit Reconnecting(std::string_view locator, Options options = {}, OnChange onChange = {},
                        Backoff backoff = {})
      : link_(std::make_shared<detail::Link>(std::string(locator), std::move(options), std::move(onChange),
                                             backoff)) {
    detail::Link::start(link_);
  }

  /** The other is closed afterwards. */
  Reconnecting(Reconnecting&& other) noexcept = default;
  /** Closes the device that was here, as the destructor does. */
  Reconnecting& operator=(Reconnecting&& other) noexcept {
    Reconnecting moved(std::move(other));
    std::swap(link_, moved.link_);
    return *this;
  }
  Reconnecting(const Reconnecting&) = delete;
  Reconnecting& operator=(const Reconnecting&) = delete;

  /** Waits for the thread: if it is just opening the device, as long as that takes. */
  ~Reconnecting() {
    if (link_) detail::Link::release(link_);
  }

  /** Closes the device for good; members throw Errc::invalidHandle, also those that wait. */
  void close() noexcept {
    if (link_ && link_->isOfThisProcess()) link_->end();
  }

  /** Waits until the device is open.
   * @return empty: it is open; else why the last attempt failed, or the loss */
  [[nodiscard]] std::error_code waitOpen(Duration timeout) const { return link()->waitOpen(timeout); }

  /** @{ */
  /** As the member of Channel. */
  void send(std::string_view bytes) const { link()->channel()->send(bytes); }
  [[nodiscard]] std::string read(Duration timeout = Duration::zero()) const {
    return link()->channel()->read(timeout);
  }
  [[nodiscard]] std::string readExactly(std::size_t count, Duration timeout) const {
    return link()->channel()->readExactly(count, timeout);
  }
  [[nodiscard]] std::string readUntil(std::string_view terminator, Duration timeout) const {
    return link()->channel()->readUntil(terminator, timeout);
  }
  [[nodiscard]] std::string query(std::string_view request, std::string_view terminator,
                                  Duration timeout) const {
    return link()->channel()->query(request, terminator, timeout);
  }
  void discard() const { link()->channel()->discard(); }
  /** @} */

 private:
  [[nodiscard]] std::shared_ptr<detail::Link> link() const {
    if (!link_ || !link_->isOfThisProcess()) throw Error(Errc::invalidHandle, "the connection is closed");
    return link_;
  }

  std::shared_ptr<detail::Link> link_;
};

}  // namespace quorvio

#endif
