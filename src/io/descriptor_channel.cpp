#include "io/descriptor_channel.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include "util/failure.h"
#include "util/scope_exit.h"
#include "util/system_call.h"

namespace qvio {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kReadBuffer = 65536;  // a third of the cost per byte of 1024-byte reads
constexpr auto kRestAfterFault = 10ms;      // a vanished peer must not cost a core
constexpr auto kLookAgain = 20ms;

bool WouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

void RequireNotClosed(bool condition) {
  Require(condition, QV_IO_ERROR_TRANSMIT_FAILED, "the channel was closed before all bytes were sent");
}

}  // namespace

DescriptorChannel::DescriptorChannel(const DescriptorKind& kind, ChannelArguments arguments)
    : IoDevice(std::move(arguments)), kind_(kind) {}

void DescriptorChannel::open(std::shared_ptr<IoDevice> self) {
  fd_ = openDescriptor();
  stop_.emplace();
  thread_ = cppu::Thread("qvio-rx", {std::move(self), this});
}

void DescriptorChannel::close(bool wait) {
  stop_->request();
  wait ? thread_.join() : cppu::Threads::all().reap();
}

void DescriptorChannel::run() {
  const cppu::ScopeExit release([this] {  // also when a callback calls pthread_exit, which closes the channel
    stop_->request();
    releaseDescriptor();
  });
  std::array<uint8_t, kReadBuffer> buffer;  // not zeroed: an idle channel does not touch its 64 KiB
  while (!stop_->requested()) {
    if (!receiveOnce(buffer)) stop_->wait(kRestAfterFault);
  }
}

void DescriptorChannel::abandon() noexcept {
  fd_.reset();
  stop_.reset();
}

/// Waits for input and delivers it. False after a fault: the caller then rests.
bool DescriptorChannel::receiveOnce(std::span<uint8_t> buffer) {
  std::array<pollfd, 2> entries{{{fd_.get(), POLLIN, 0}, {stop_->fd(), POLLIN, 0}}};
  if (cppu::PollUntil(entries, {}) < 0) return reportFault(QV_IO_ERROR_RECEIVE_FAILED);
  const auto marks = entries[0].revents;
  // Bytes that arrive after a stop belong to whoever opens the device next.
  if (marks == 0 || entries[1].revents != 0) return true;
  // With an error mark the count comes first: a read could consume the pending error, which the next send
  // must report.
  if (marks != POLLIN) return receiveCounted(buffer);

  const auto got = readSome(buffer);
  if (got > 0) deliverInChunks(buffer.first(static_cast<std::size_t>(got)));
  if (got > 0 || (got < 0 && WouldBlock(errno))) return true;
  return receiveCounted(buffer);
}

/// Asks how many bytes are waiting, and reads so many.
bool DescriptorChannel::receiveCounted(std::span<uint8_t> buffer) {
  int counted = 0;
  const auto asked = cppu::Uninterrupted([&] { return ::ioctl(fd_.get(), FIONREAD, &counted); });
  if (asked < 0) return reportFault(QV_IO_ERROR_RECEIVE_FAILED);
  if (counted < 1) return reportFault(kind_.nothingReady);
  for (long waiting = counted; waiting > 0 && !stop_->requested();) {
    // It may be more than was counted: the next pass then finds less.
    const auto got = readSome(buffer);
    if (got < 0 && WouldBlock(errno)) return true;  // another reader of the device was faster
    if (got < 0 && (reportsErrors() || !kind_.failedReadIsDelivered))
      return reportFault(QV_IO_ERROR_RECEIVE_FAILED);
    if (got > 0) {
      deliverInChunks(buffer.first(static_cast<std::size_t>(got)));
    } else {
      // Callers without an error callback rely on the -1, which is delivered like any other result.
      deliver(buffer.data(), static_cast<std::size_t>(got));
      stop_->wait(kRestAfterFault);
      // The line was hung up after the count: the next FIONREAD reports that; `read` would return 0 forever.
      if (got == 0) return true;
    }
    waiting -= got;
  }
  return true;
}

long DescriptorChannel::readSome(std::span<uint8_t> buffer) const {
  return cppu::Uninterrupted([&] { return ::read(fd_.get(), buffer.data(), buffer.size()); });
}

void DescriptorChannel::deliverInChunks(std::span<const uint8_t> bytes) {
  peerTalks_ = true;
  while (!bytes.empty() && !stop_->requested()) {
    const auto chunk = bytes.first(std::min<std::size_t>(bytes.size(), QV_IO_RECEIVE_CHUNK));
    deliver(chunk.data(), chunk.size());
    bytes = bytes.subspan(chunk.size());
  }
}

bool DescriptorChannel::reportFault(uint32_t notice) const {
  if (notice != QV_IO_OK) report(notice);
  return false;
}

void DescriptorChannel::releaseDescriptor() noexcept {
  const std::lock_guard lock(sendMutex_);
  const auto waits = [this](int queued) { return checkPatience(queued); };
  if (kind_.socket) {
    ReleaseSocket(std::move(fd_), peerTalks_, waits);
  } else {
    ReleaseTerminal(std::move(fd_), waits);
  }
}

void DescriptorChannel::send(std::span<const uint8_t> bytes) {
  // Before the lock: an empty send must not wait for a blocked one.
  if (bytes.empty()) return;
  const std::lock_guard lock(sendMutex_);
  sendAll(bytes);
}

void DescriptorChannel::sendAll(std::span<const uint8_t> rest) {
  // Only a send in progress may delay a close; one that was waiting for the lock has not started.
  RequireNotClosed(!stop_->requested());
  while (!rest.empty()) {
    const auto piece = rest.first(std::min(rest.size(), kind_.largestWrite));
    const auto written = writeSome(piece);
    // A short write means the buffer is full: asking for room at once saves a call that would fail.
    const bool full = written < 0 ? WouldBlock(errno) : static_cast<std::size_t>(written) < piece.size();
    const bool failed = written < 0 && !full;
    Require(!failed || errno != ECONNRESET, kind_.peerReset, "cannot send", {}, errno);
    Require(!failed, QV_IO_ERROR_TRANSMIT_FAILED, "cannot send", {}, errno);
    Require(written != 0 && written <= std::ssize(piece), QV_IO_ERROR_TRANSMIT_FAILED,
            "the device takes no bytes");
    if (written > 0) {
      rest = rest.subspan(static_cast<std::size_t>(written));
      written_ += written;
    }
    if (full) RequireNotClosed(waitWritable());
    if (!rest.empty()) RequireNotClosed(mayGoOn());
  }
}

long DescriptorChannel::writeSome(std::span<const uint8_t> bytes) const {
  return cppu::Uninterrupted([&] {
    return kind_.socket ? ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL)
                        : ::write(fd_.get(), bytes.data(), bytes.size());
  });
}

/// Waits until the device takes bytes again: without limit while the channel is open, within the limits of a
/// close afterwards. False when time is up.
bool DescriptorChannel::waitWritable() {
  std::array<pollfd, 2> entries{{{fd_.get(), POLLOUT, 0}, {stop_->fd(), POLLIN, 0}}};
  if (cppu::PollUntil(entries, {}) < 0) return false;
  return entries[0].revents != 0 || waitWritableWhileClosing();
}

/// Polls in steps: TCP reports room only when a third of its buffer is free, long after bytes move again, and
/// a terminal may get room without waking its waiters.
bool DescriptorChannel::waitWritableWhileClosing() {
  std::array<pollfd, 1> entry{{{fd_.get(), POLLOUT, 0}}};
  int ready = 0;
  while (ready == 0 && checkPatience(QueuedBytes(fd_.get())))
    ready = cppu::PollUntil(entry, std::chrono::steady_clock::now() + kLookAgain);
  return ready > 0;
}

}  // namespace qvio
