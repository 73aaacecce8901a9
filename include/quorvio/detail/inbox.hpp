#ifndef QUORVIO_DETAIL_INBOX_HPP
#define QUORVIO_DETAIL_INBOX_HPP

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "quorvio/detail/error.hpp"

namespace quorvio {

/** Time-outs. Zero or less: looks once and does not wait. */
using Duration = std::chrono::milliseconds;

namespace detail {

inline std::chrono::steady_clock::time_point deadlineAfter(Duration timeout) {
  constexpr Duration kForEver = std::chrono::hours(24 * 365 * 50);  // Duration::max() would overflow
  return std::chrono::steady_clock::now() + std::clamp(timeout, Duration::zero(), kForEver);
}

/// What a channel has received and nobody has read yet. The receive thread adds, any thread reads.
class Inbox {
 public:
  explicit Inbox(std::size_t limit) : limit_(limit) {
    if (limit == 0) throw Error(Errc::invalidArgument, "a receive buffer of no bytes");
  }

  /// Receive thread. Waits for room; drops the bytes if the inbox is closed or discarded while it waits.
  void add(std::string_view bytes) {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto discards = discards_;
    while (!bytes.empty()) {  // locked at the beginning of each turn
      hasRoom_.wait(lock, [&] { return closed_ || discards_ != discards || unread() < room(); });
      if (closed_ || discards_ != discards) return;
      const auto piece = bytes.substr(0, room() - unread());
      if (taken_ >= unread()) bytes_.erase(0, std::exchange(taken_, 0));
      bytes_ += piece;
      bytes.remove_prefix(piece.size());
      lock.unlock();  // before the notice, so that the reader does not wake only to wait for the lock
      arrived_.notify_all();
      if (!bytes.empty()) lock.lock();
    }
  }

  /// Receive thread. Only the first notice counts until bytes come again.
  void lose(uint32_t result) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (loss_ != QV_IO_OK) return;
      loss_ = result;
      lossAt_ = position_ + unread();
    }
    arrived_.notify_all();
    lost_.notify_all();
  }

  /// Wakes everybody.
  void close() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      closed_ = true;
    }
    hasRoom_.notify_all();
    arrived_.notify_all();
    lost_.notify_all();
  }

  void discard() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      requireOpen();
      ++discards_;
      advance(unread());
      lossAt_ = position_;
    }
    hasRoom_.notify_all();
  }

  std::size_t available() {
    const std::lock_guard<std::mutex> lock(mutex_);
    requireOpen();
    return readable().size();
  }

  /// All there is, at least one byte; none after the time-out.
  std::optional<std::string> takeAny(Duration timeout) {
    return take(timeout, [](std::string_view there) { return found(there.size(), !there.empty()); });
  }

  std::optional<std::string> takeExactly(std::size_t count, Duration timeout) {
    return take(
        timeout, [count](std::string_view there) { return found(count, there.size() >= count); }, count);
  }

  /// Up to and with the terminator.
  std::optional<std::string> takeUntil(std::string_view terminator, Duration timeout) {
    if (terminator.empty()) throw Error(Errc::invalidArgument, "an empty terminator");
    uint64_t searched =
        0;  // the position before which no terminator begins, so that no byte is searched twice
    return take(timeout, [&](std::string_view there) {
      const auto from = searched > position_ ? static_cast<std::size_t>(searched - position_) : 0;
      const auto at = there.find(terminator, from);
      if (at != std::string_view::npos) return found(at + terminator.size(), true);
      if (there.size() >= room()) throw Error(Errc::bufferTooSmall, "no terminator in a full receive buffer");
      if (there.size() >= terminator.size()) searched = position_ + there.size() - terminator.size() + 1;
      return found(0, false);
    });
  }

  /// The loss, as soon as there is one, whatever has been read; none after the time-out.
  std::optional<std::error_code> awaitLoss(Duration timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    lost_.wait_until(lock, deadlineAfter(timeout), [&] { return loss_ != QV_IO_OK || closed_; });
    if (loss_ != QV_IO_OK) return make_error_code(static_cast<Errc>(loss_));
    requireOpen();
    return {};
  }

 private:
  static std::optional<std::size_t> found(std::size_t count, bool complete) {
    return complete ? std::optional<std::size_t>(count) : std::nullopt;
  }

  /// Waits until `complete` finds how many of the readable bytes to take.
  template <class Complete>
  std::optional<std::string> take(Duration timeout, Complete complete, std::size_t wanted = 0) {
    std::unique_lock<std::mutex> lock(mutex_);
    requireOpen();
    if (wanted > wanted_) {
      wanted_ = wanted;
      hasRoom_.notify_all();
    }
    std::optional<std::size_t> count;
    arrived_.wait_until(lock, deadlineAfter(timeout), [&] {
      count = complete(readable());
      return count.has_value() || loss_ != QV_IO_OK || closed_;
    });
    wanted_ = 0;
    if (!count) {
      throwLoss();
      requireOpen();
      return {};
    }
    std::string bytes(readable().substr(0, *count));
    advance(*count);
    lock.unlock();
    hasRoom_.notify_all();
    return bytes;
  }

  // Caller holds mutex_:

  [[nodiscard]] std::size_t unread() const { return bytes_.size() - taken_; }
  [[nodiscard]] std::size_t room() const { return std::max(limit_, wanted_); }

  /// Bytes that came before the loss are read first.
  [[nodiscard]] std::string_view readable() const {
    const auto all = std::string_view(bytes_).substr(taken_);
    return loss_ == QV_IO_OK ? all : all.substr(0, static_cast<std::size_t>(lossAt_ - position_));
  }

  void advance(std::size_t count) {
    taken_ += count;
    position_ += count;
  }

  /// The loss is thrown again and again until bytes have come after it, which prove that the link works.
  void throwLoss() {
    const auto loss = loss_;
    if (loss == QV_IO_OK) return;
    if (unread() > readable().size()) loss_ = QV_IO_OK;
    check(loss, "receive");
  }

  void requireOpen() const {
    if (closed_) throw Error(Errc::invalidHandle, "the channel is closed");
  }

  const std::size_t limit_;
  std::mutex mutex_;                 ///< guards all below; the last lock of any
  std::condition_variable arrived_;  ///< bytes, a loss, the end
  std::condition_variable lost_;     ///< a loss, the end
  std::condition_variable hasRoom_;
  std::string bytes_;
  std::size_t taken_ = 0;  ///< bytes at the front of bytes_ that have been read
  uint64_t position_ = 0;  ///< of the next byte to read, in the whole stream
  uint64_t lossAt_ = 0;    ///< position of the loss
  uint32_t loss_ = QV_IO_OK;
  uint64_t discards_ = 0;
  std::size_t wanted_ = 0;  ///< a reader waits for that many, though it be more than the limit
  bool closed_ = false;
};

}  // namespace detail
}  // namespace quorvio

#endif
