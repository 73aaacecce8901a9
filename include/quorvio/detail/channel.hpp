#ifndef QUORVIO_DETAIL_CHANNEL_HPP
#define QUORVIO_DETAIL_CHANNEL_HPP

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "quorvio/detail/channel_state.hpp"
#include "quorvio/detail/error.hpp"
#include "quorvio/detail/inbox.hpp"
#include "quorvio/detail/options.hpp"
#include "quorvio/detail/text_out.hpp"

namespace quorvio {

/** An open device. Either received bytes wait in a buffer to be read, or they go to callbacks.
 *
 * Bytes are std::string and std::string_view; zero bytes are bytes like others.
 *
 * A lost link is reported once for all the notices that the library gives: bytes that came before the loss
 * are read first, then every reading member throws it (Errc::connectionLost or Errc::receiveFailed), until
 * bytes come again. The channel stays open; close it and open the device again, or use Reconnecting. */
class Channel {
 public:
  /** Bytes of the buffer where nothing else is asked for. */
  static constexpr std::size_t kDefaultBuffer = std::size_t{1} << 20U;

  /** A closed channel: every member throws Errc::invalidHandle. */
  Channel() = default;

  /** Opens a device whose bytes are buffered. When the buffer is full, receiving rests until bytes are read
   * or discarded; how that reaches the device depends on its link (TCP: it cannot send more).
   * @param locator     as QV_IO_Open
   * @param options     as QV_IO_Open
   * @param bufferSize  bytes, at least 1; memory is taken as bytes come
   * @throws Error  as QV_IO_Open */
  explicit Channel(std::string_view locator, const Options& options = {},
                   std::size_t bufferSize = kDefaultBuffer)
      : state_(open(std::make_shared<detail::ChannelState>(bufferSize), locator, options)) {}

  /** Opens a device whose bytes go to a callback. Both run on the channel's receive thread, one at a time,
   * and may run before the constructor returns. They may use, close, move and destroy any channel, their own
   * included; what they hold is destroyed when the channel is closed and they have returned.
   * They must not throw, which ends the process, and not end their thread.
   * @param locator    as QV_IO_Open
   * @param options    as QV_IO_Open
   * @param onReceive  may be empty: bytes are dropped
   * @param onLost     may be empty */
  Channel(std::string_view locator, const Options& options, OnReceive onReceive, OnLost onLost = {})
      : state_(open(std::make_shared<detail::ChannelState>(
                        detail::ChannelFunctions{std::move(onReceive), std::move(onLost)}),
                    locator, options)) {}

  /** The other is closed afterwards. */
  Channel(Channel&& other) noexcept = default;
  /** Closes the channel that was here. */
  Channel& operator=(Channel&& other) noexcept {
    Channel moved(std::move(other));
    std::swap(state_, moved.state_);
    return *this;
  }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  /** As close(). */
  ~Channel() { close(); }

  /** Closes the channel; nothing if it is closed. Any thread: those that wait in a member wake with
   * Errc::invalidHandle, unless a loss or the awaited bytes are there. On return the device is released and
   * no callback runs, unless the call comes from a callback of this channel, or of one that this channel's
   * callback is closing; then it does not wait. A send in progress is ended as QV_IO_Close says. */
  void close() noexcept {
    const auto state = state_;  // the callbacks, which are destroyed now, may own this object
    if (state) detail::ChannelState::close(state);
  }

  /** False once close() has begun, and in a forked child. A lost link stays open. */
  [[nodiscard]] bool isOpen() const { return state_ && state_->isOpen(); }

  /** Sends all bytes; returns when the system has them. Blocks while the device takes no more.
   * @throws Error  as QV_IO_Send; some bytes may have been sent */
  void send(std::string_view bytes) const { send(bytes.data(), bytes.size()); }
  /** The same for any bytes. */
  void send(const void* data, std::size_t size) const {
    detail::check(state()->use([&](uint32_t handle) { return QV_IO_Send(handle, data, size); }), "send");
  }

  /** All bytes that are there; if there are none, those that come next.
   * @return empty after the time-out */
  [[nodiscard]] std::string read(Duration timeout = Duration::zero()) const {
    return inbox()->takeAny(timeout).value_or(std::string());
  }

  /** The next `count` bytes, which may be more than the buffer holds.
   * @throws Error  Errc::timedOut; the bytes that have come stay in the buffer */
  [[nodiscard]] std::string readExactly(std::size_t count, Duration timeout) const {
    return orTimedOut(inbox()->takeExactly(count, timeout));
  }

  /** The bytes up to the terminator, which is taken but not returned.
   * @throws Error  Errc::timedOut; Errc::bufferTooSmall: the buffer is full without a terminator. The bytes
   *                that have come stay in the buffer */
  [[nodiscard]] std::string readUntil(std::string_view terminator, Duration timeout) const {
    auto bytes = orTimedOut(inbox()->takeUntil(terminator, timeout));
    bytes.resize(bytes.size() - terminator.size());
    return bytes;
  }

  /** Discards what has been received, sends the request, and reads its answer up to the terminator.
   * A late answer to an earlier request is never returned as the answer to this one if it has arrived
   * before the request is sent. If it may come still later, only the device's protocol can tell: close and
   * open again after a time-out, or wait and discard.
   * @param request     as the device wants it, with its line end
   * @param terminator  ends the answer; taken but not returned
   * @param timeout     for the answer, from the moment the request is sent
   * @throws Error  as discard, send and readUntil */
  [[nodiscard]] std::string query(std::string_view request, std::string_view terminator,
                                  Duration timeout) const {
    discard();
    send(request);
    return readUntil(terminator, timeout);
  }

  /** Discards the bytes that have been received and not read; a loss stays. */
  void discard() const { inbox()->discard(); }

  /** How many bytes read would return now. */
  [[nodiscard]] std::size_t available() const { return inbox()->available(); }

  /** Waits for a loss of the link without reading.
   * @return why; none after the time-out
   * @throws Error  Errc::invalidHandle when the channel is closed during the call */
  [[nodiscard]] std::optional<std::error_code> waitLost(Duration timeout) const {
    return inbox()->awaitLoss(timeout);
  }

  /** A property of the channel: see QV_IO_GetProperty. */
  [[nodiscard]] std::string property(std::string_view key) const {
    const auto checked = detail::textWithout(detail::kZeroByte, key, Errc::invalidArgument);
    return detail::textOut("property " + checked, [&](char* buffer, std::size_t* size) {
      return state()->use(
          [&](uint32_t handle) { return QV_IO_GetProperty(handle, checked.c_str(), buffer, size); });
    });
  }

 private:
  static std::shared_ptr<detail::ChannelState> open(std::shared_ptr<detail::ChannelState> state,
                                                    std::string_view locator, const Options& options) {
    return detail::ChannelState::open(std::move(state), locator, options);
  }

  static std::string orTimedOut(std::optional<std::string> bytes) {
    if (!bytes) throw Error(Errc::timedOut, "receive");
    return *std::move(bytes);
  }

  /// Owned by the caller as well: a callback may destroy this object during the call.
  [[nodiscard]] std::shared_ptr<detail::ChannelState> state() const {
    if (!state_) throw Error(Errc::invalidHandle, "a channel that was never opened, or moved from");
    return state_;
  }
  [[nodiscard]] std::shared_ptr<detail::Inbox> inbox() const { return state()->inbox(); }

  std::shared_ptr<detail::ChannelState> state_;
};

}  // namespace quorvio

#endif
