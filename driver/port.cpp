#include "driver/port.h"

#include <poll.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

#include "driver/packets.h"
#include "util/event_fd.h"
#include "util/scope_exit.h"
#include "util/system_call.h"

namespace qvusb {
namespace {

namespace status = qvio::d2xx::status;
using namespace std::chrono_literals;
using qvio::d2xx::EventHandle;

constexpr std::size_t kFull = 65536;   ///< bytes in the queue: no further reads
constexpr std::size_t kRoomy = 32768;  ///< reads again
constexpr std::size_t kLargestTransfer = 16384;
constexpr std::size_t kSmallestPiece = 64;
constexpr std::size_t kPacketsInATransfer = 8;  ///< a transfer ends when it is full, or with a short packet
constexpr auto kLongestWrite = 50ms;            ///< a close waits for it
constexpr auto kTimeOfAPiece = 20ms;
constexpr uint32_t kBitsOfAByte = 10;
constexpr auto kRestAfterFailure = 10ms;
constexpr int kMostFailures = 50;
constexpr int kTries = 100;  ///< of locking a mutex that is seldom held for more than a microsecond
constexpr auto kRestBetweenSignals = 1ms;

/// As many bytes as the line carries while a write may last: only a line that is held up makes us cancel one.
std::size_t PieceSize(uint32_t baud) {
  const auto piecesInASecond = static_cast<uint32_t>(1s / kTimeOfAPiece);
  return std::clamp<std::size_t>(baud / kBitsOfAByte / piecesInASecond, kSmallestPiece, kLargestTransfer);
}

/// False when the event's owner keeps its mutex: it may be about to close the port.
bool Signal(EventHandle& event) {
  int error = EBUSY;
  for (int tries = 0; error != 0 && tries < kTries; ++tries) error = ::pthread_mutex_trylock(&event.mutex);
  if (error != 0) return false;
  ::pthread_mutex_unlock(&event.mutex);
  // Now: under the mutex the owner would wake only to wait for it.
  ::pthread_cond_broadcast(&event.condition);
  return true;
}

}  // namespace

Port::Port(const Channel& channel, std::unique_ptr<Link> link)
    : channel_(channel),
      link_(std::move(link)),
      control_(*link_, channel.kind, channel.number),
      wakeUp_(cppu::MakeEvent()),
      readSize_(kPacketsInATransfer * channel.packetSize),
      pieceSize_(kLargestTransfer) {
  write_.direction = Transfer::Direction::Out;
  // All that the thread needs: it could not report that memory is short.
  for (auto& transfer : reads_) transfer.bytes.reserve(kLargestTransfer);
  received_.reserve(kFull + reads_.size() * kLargestTransfer);
}

Port::~Port() { link_->release(); }

void Port::open(std::shared_ptr<Port> self) {
  control_.reset();
  {
    Lock lock(mutex_);
    submitReads(lock);
    if (isGone_) throw std::system_error(ENODEV, std::generic_category(), "read");
  }
  thread_ = cppu::Thread("ftdi-usb", std::move(self));
}

void Port::close() noexcept {
  {
    const Lock lock(mutex_);
    isClosed_ = true;
    event_ = nullptr;
    readable_.notify_all();
    written_.notify_all();
  }
  { const std::lock_guard writeHasEnded(writing_); }
  stop();
  thread_.join();
  link_->release();
}

void Port::stop() noexcept {
  stopped_ = true;
  wakeThread();
}

void Port::wakeThread() const noexcept { ::eventfd_write(wakeUp_.get(), 1); }

void Port::abandon() noexcept { link_->abandon(); }

// ---- the thread

void Port::run() {
  while (!stopped_) {
    waitForWork();
    {
      Lock lock(mutex_);
      collect(lock);
    }
    notify();
  }
}

void Port::waitForWork() {
  cppu::Deadline deadline;
  std::array<pollfd, 2> entries{{{wakeUp_.get(), POLLIN, 0}, link_->readiness()}};
  {
    const Lock lock(mutex_);
    if (isGone_) entries[1].fd = -1;  // it would be ready forever
    if (!isGone_) deadline = retryAt_;
    if (isDue_) deadline = Clock::now() + kRestBetweenSignals;
  }
  cppu::PollUntil(entries, deadline);
  eventfd_t ignored = 0;
  if (entries[0].revents != 0) ::eventfd_read(wakeUp_.get(), &ignored);
  if ((entries[1].revents & (POLLHUP | POLLERR)) == 0) return;
  Lock lock(mutex_);
  collect(lock);  // what has come before
  loseChip(lock);
}

/// Takes what has come and reads on.
void Port::collect(Lock& held) {
  const auto before = received_.size();
  while (const auto* const transfer = link_->reap()) {
    if (transfer == &write_) {
      written_.notify_all();
      continue;
    }
    take(*transfer);
    if (transfer->error == 0) failuresInARow_ = 0;
    if (transfer->error == EPIPE) link_->clearHalt(transfer->direction);
    if (transfer->error != 0) retryLater(held, transfer->error);
  }
  if (received_.size() > before) announce(held);
  submitReads(held);
}

void Port::take(const Transfer& transfer) {
  ForEachPayload({transfer.bytes.data(), transfer.done}, channel_.packetSize,
                 [this](std::string_view bytes) { received_.append(bytes); });
}

/// The bus fails for a moment before the system knows that a chip was unplugged; that must not cost a core.
void Port::retryLater(Lock& held, int error) {
  retryAt_ = Clock::now() + kRestAfterFailure;
  wakeThread();  // this may be another one
  if (error == ENODEV || ++failuresInARow_ > kMostFailures) loseChip(held);
}

void Port::submitReads(Lock& held) {
  isPaused_ = received_.size() > (isPaused_ ? kRoomy : kFull);
  if (retryAt_ && !cppu::HasPassed(retryAt_)) return;
  retryAt_.reset();  // in any case: the thread would not sleep
  if (isPaused_ || isPurging_ || isGone_ || isClosed_) return;
  for (auto& transfer : reads_) {
    if (transfer.isPending) continue;
    transfer.bytes.resize(readSize_);
    if (const int error = link_->submit(transfer); error != 0) return retryLater(held, error);
  }
}

void Port::loseChip(Lock& held) {
  if (std::exchange(isGone_, true)) return;
  written_.notify_all();
  announce(held);
  wakeThread();  // another thread may have noticed
}

void Port::announce(Lock& /*held*/) {
  events_ |= qvio::d2xx::kEventReceived & eventMask_;
  isDue_ = event_ != nullptr;
  readable_.notify_all();
}

void Port::notify() {
  EventHandle* event = nullptr;
  {
    const Lock lock(mutex_);
    if (!std::exchange(isDue_, false) || event_ == nullptr) return;
    event = event_;
    isNotifying_ = true;
  }
  const bool isDone = Signal(*event);
  const Lock lock(mutex_);
  isNotifying_ = false;
  isDue_ = (isDue_ || !isDone) && event_ != nullptr;
  notified_.notify_all();
}

// ---- calls

/// In portions: the queue may be too small for all of it.
uint32_t Port::read(char* buffer, std::size_t size, uint32_t& got) {
  const auto start = Clock::now();
  Lock lock(mutex_);
  for (bool isInTime = true; got < size && isInTime;) {
    const auto portion = std::min(size - got, kRoomy);
    const auto isEnough = [&] { return received_.size() >= portion || isGone_ || isClosed_; };
    if (readTimeout_ == 0ms) readable_.wait(lock, isEnough);
    if (readTimeout_ > 0ms) isInTime = readable_.wait_until(lock, start + readTimeout_, isEnough);
    if (isClosed_) return status::kInvalidHandle;
    if (isGone_ && received_.size() == 0) return got == 0 ? status::kIoError : status::kOk;
    got += static_cast<uint32_t>(received_.take(buffer + got, size - got));
    if (isPaused_) submitReads(lock);
  }
  return status::kOk;
}

uint32_t Port::write(std::string_view bytes, uint32_t& written) {
  const std::lock_guard alone(writing_);
  const auto start = Clock::now();
  std::chrono::milliseconds limit = kLongestWrite;
  std::size_t pieceSize = 0;
  {
    const Lock lock(mutex_);
    if (writeTimeout_ > 0ms) limit = std::min(limit, writeTimeout_);
    pieceSize = pieceSize_;
  }
  for (;;) {
    const auto piece = bytes.substr(0, pieceSize);
    std::size_t done = 0;
    const auto status = writePiece(piece, start + limit, done);
    written += static_cast<uint32_t>(done);
    bytes.remove_prefix(done);
    // The next piece would have to be cancelled.
    const bool isLate = Clock::now() + kTimeOfAPiece > start + limit;
    if (status != status::kOk || done < piece.size() || bytes.empty() || isLate) return status;
  }
}

/// Not all of the piece may go: the status is OK then too.
uint32_t Port::writePiece(std::string_view piece, Clock::time_point end, std::size_t& done) {
  Lock lock(mutex_);
  if (isClosed_) return status::kInvalidHandle;
  if (isGone_) return status::kIoError;
  write_.bytes.assign(piece.begin(), piece.end());
  if (const int error = link_->submit(write_); error != 0)
    return error == ENODEV ? status::kIoError : status::kOtherError;
  const auto hasEnded = [this] { return !write_.isPending; };
  if (!written_.wait_until(lock, end, [&] { return hasEnded() || isClosed_ || isGone_; }) || !hasEnded()) {
    lock.unlock();
    link_->cancel(write_);
    wakeThread();
    lock.lock();
    written_.wait(lock, [&] { return hasEnded() || isGone_; });
  }
  if (hasEnded()) done = write_.done;
  if (isGone_ || write_.error == ENODEV) return status::kIoError;
  if (write_.error == EPIPE) link_->clearHalt(write_.direction);
  return write_.error != 0 ? status::kOtherError : status::kOk;
}

uint32_t Port::getStatus(uint32_t& received, uint32_t& toTransmit, uint32_t& events) {
  const Lock lock(mutex_);
  if (isGone_ && received_.size() == 0) return status::kIoError;
  received = static_cast<uint32_t>(received_.size());
  toTransmit = write_.isPending ? static_cast<uint32_t>(write_.bytes.size()) : 0;
  events = std::exchange(events_, 0);
  return status::kOk;
}

/// Pending reads are ended first: they may hold bytes of before.
void Port::purge(bool received, bool toTransmit) {
  if (toTransmit) control_.purge(ChipControl::Queue::ToTransmit);
  if (!received) return;
  Lock lock(mutex_);
  isPurging_ = true;
  const cppu::ScopeExit readOn([&] {  // also when the chip does not answer
    isPurging_ = false;
    submitReads(lock);
  });
  for (auto& transfer : reads_)
    if (transfer.isPending) link_->cancel(transfer);
  control_.purge(ChipControl::Queue::Received);
  collect(lock);
  received_.clear();
}

void Port::setTimeouts(uint32_t readMs, uint32_t writeMs) {
  const Lock lock(mutex_);
  readTimeout_ = std::chrono::milliseconds(readMs);
  writeTimeout_ = std::chrono::milliseconds(writeMs);
}

void Port::setTransferSize(std::size_t bytes) {
  const auto packets = std::max<std::size_t>(std::min(bytes, kLargestTransfer) / channel_.packetSize, 1);
  const Lock lock(mutex_);
  readSize_ = packets * channel_.packetSize;
}

uint32_t Port::setSpeed(uint32_t baud) {
  const auto divisor = DivisorFor(baud, channel_.kind.isHighSpeed);
  if (!divisor) return status::kInvalidBaudRate;
  control_.setSpeed(*divisor);
  const Lock lock(mutex_);
  pieceSize_ = PieceSize(baud);
  return status::kOk;
}

void Port::setEvent(uint32_t mask, EventHandle* event) {
  Lock lock(mutex_);
  event_ = nullptr;
  notified_.wait(lock, [this] { return !isNotifying_; });
  eventMask_ = mask;
  event_ = (mask & qvio::d2xx::kEventReceived) != 0 ? event : nullptr;
  isDue_ = event_ != nullptr && (isGone_ || received_.size() != 0);
  if (isDue_) wakeThread();
}

}  // namespace qvusb
