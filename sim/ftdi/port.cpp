#include "sim/ftdi/port.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace qvsim {
namespace {

namespace status = qvio::d2xx::status;
using qvio::d2xx::EventHandle;
using namespace std::chrono_literals;

constexpr std::size_t kTransmitQueue = 65536;
constexpr std::size_t kLargestBacklog = 4 * kTransmitQueue;  ///< not read yet; then the device takes no more
constexpr auto kPatience = 1ms;

/// False when the event's owner keeps its mutex: he may be about to close the port, or hold up all others.
bool Signal(EventHandle& event) {
  timespec limit{};
  ::clock_gettime(CLOCK_REALTIME, &limit);
  limit.tv_nsec += static_cast<long>(std::chrono::nanoseconds(kPatience).count());
  if (limit.tv_nsec >= 1'000'000'000) {
    limit.tv_nsec -= 1'000'000'000;
    ++limit.tv_sec;
  }
  if (::pthread_mutex_timedlock(&event.mutex, &limit) != 0) return false;
  ::pthread_mutex_unlock(&event.mutex);
  ::pthread_cond_broadcast(
      &event.condition);  // now: under the mutex the owner would wake only to wait for it
  return true;
}

/// Waits for the condition; false when the time is over.
/// @param timeout  0: none
template <class Condition>
bool WaitFor(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
             std::chrono::milliseconds timeout, std::chrono::steady_clock::time_point start,
             Condition condition) {
  if (timeout.count() > 0) return changed.wait_until(lock, start + timeout, condition);
  changed.wait(lock, condition);
  return true;
}

}  // namespace

Port::Port(EventLoop& loop, std::unique_ptr<Responder> device, Answers answers, bool stalled)
    : loop_(loop), device_(std::move(device)), answers_(answers), stalled_(stalled) {}

void Port::end(uint32_t status) {
  Lock lock(mutex_);
  ended_ = status;
  readable_.notify_all();
  writable_.notify_all();
  forgetEvent(lock);
}

uint32_t Port::read(char* buffer, std::size_t size, uint32_t& got) {
  const auto start = std::chrono::steady_clock::now();
  Lock lock(mutex_);
  const auto isThere = [&] {
    const bool done = received_.size() >= size || ended_ != status::kOk;
    if (!done) wanted_ = std::min(wanted_, size);
    return done;
  };
  WaitFor(readable_, lock, readTimeout_, start, isThere);
  if (ended_ != status::kOk) return ended_;
  got = static_cast<uint32_t>(received_.take(buffer, size));
  transmit(lock);  // the device may have waited for room
  return status::kOk;
}

uint32_t Port::write(std::string_view bytes, uint32_t& written) {
  const auto start = std::chrono::steady_clock::now();
  Lock lock(mutex_);
  const auto hasRoom = [&] { return toTransmit_.size() < kTransmitQueue || ended_ != status::kOk; };
  bool isInTime = true;
  while (!bytes.empty() && isInTime && ended_ == status::kOk) {
    const auto piece = bytes.substr(0, kTransmitQueue - toTransmit_.size());
    toTransmit_ += piece;
    bytes.remove_prefix(piece.size());
    written += static_cast<uint32_t>(piece.size());
    transmit(lock);
    if (!bytes.empty()) isInTime = WaitFor(writable_, lock, writeTimeout_, start, hasRoom);
  }
  return ended_;
}

void Port::getStatus(uint32_t& received, uint32_t& toTransmit, uint32_t& events) {
  const Lock lock(mutex_);
  received = static_cast<uint32_t>(received_.size());
  toTransmit = static_cast<uint32_t>(toTransmit_.size());
  events = std::exchange(events_, 0);
}

void Port::purge(uint32_t queues) {
  const Lock lock(mutex_);
  noteLocked("purges", {++purges_});
  noteLocked("purged", {queues});
  if ((queues & qvio::d2xx::kPurgeReceived) != 0) {
    received_.clear();
    delayed_.clear();
  }
  if ((queues & qvio::d2xx::kPurgeToTransmit) == 0) return;
  toTransmit_.clear();
  writable_.notify_all();
}

void Port::setTimeouts(uint32_t readMs, uint32_t writeMs) {
  const Lock lock(mutex_);
  readTimeout_ = std::chrono::milliseconds(readMs);
  writeTimeout_ = std::chrono::milliseconds(writeMs);
  noteLocked("timeouts", {readMs, writeMs});
}

void Port::setLatency(uint8_t ms) {
  const Lock lock(mutex_);
  latency_ = std::chrono::milliseconds(ms);
  noteLocked("latency", {ms});
}

uint32_t Port::setEvent(uint32_t mask, EventHandle* event) {
  Lock lock(mutex_);
  forgetEvent(lock);
  if (ended_ != status::kOk) return ended_;  // nobody would make us forget it any more
  event_ = (mask & qvio::d2xx::kEventReceived) != 0 ? event : nullptr;
  eventMask_ = mask;
  noteLocked("event", {mask});
  return status::kOk;
}

/// Ends within the patience of a notification, even when the caller holds the event's mutex.
void Port::forgetEvent(Lock& lock) {
  event_ = nullptr;
  notified_.wait(lock, [this] { return !isNotifying_; });
}

void Port::note(const std::string& name, std::initializer_list<uint32_t> values) {
  const Lock lock(mutex_);
  noteLocked(name, values);
}

void Port::noteLocked(const std::string& name, std::initializer_list<uint32_t> values) {
  std::string text;
  for (const auto value : values) text += (text.empty() ? "" : ",") + std::to_string(value);
  settings_[name] = text;
}

std::string Port::settings() const {
  const Lock lock(mutex_);
  std::string text;
  for (const auto& [name, value] : settings_)
    text.append(text.empty() ? "" : " ").append(name).append("=").append(value);
  return text;
}

void Port::inject(std::string_view bytes) {
  Lock lock(mutex_);
  store(lock, bytes);
  lock.unlock();
  loop_.post([self = shared_from_this()] { self->notify(); });
}

void Port::setStalled(bool stalled) {
  Lock lock(mutex_);
  stalled_ = stalled;
  transmit(lock);
}

/// Wakes the blocked reads only if one of them has enough now.
void Port::store(Lock& /*held*/, std::string_view bytes) {
  received_.append(bytes);
  events_ |= qvio::d2xx::kEventReceived & eventMask_;
  if (received_.size() < wanted_) return;
  wanted_ = std::numeric_limits<std::size_t>::max();  // they say again what they want
  readable_.notify_all();
}

/// Lets the device take what there is, unless it is about to. Gives the lock away for a moment.
void Port::transmit(Lock& lock) {
  const bool hasRoom = received_.size() + delayed_.size() < kLargestBacklog;
  if (pumpIsPosted_ || stalled_ || !hasRoom || toTransmit_.empty() || ended_ != status::kOk) return;
  pumpIsPosted_ = true;
  lock.unlock();
  loop_.post([self = shared_from_this()] { self->pump(); });
  lock.lock();
}

void Port::pump() {
  {
    const Lock lock(mutex_);
    pumpIsPosted_ = false;
    if (stalled_ || ended_ != status::kOk) return;
    taken_.clear();
    taken_.swap(toTransmit_);
    writable_.notify_all();
  }
  const auto answer = device_->answer(taken_);
  if (answer.empty()) return;
  if (answers_ == Answers::AfterLatency) return answerLater(answer);
  {
    Lock lock(mutex_);
    store(lock, answer);
  }
  notify();
}

/// As a chip does: it waits for more before it sends what is less than a full packet.
void Port::answerLater(std::string_view bytes) {
  const Lock lock(mutex_);
  const bool timerRuns = !delayed_.empty();
  delayed_ += bytes;
  if (timerRuns) return;
  loop_.after(latency_, [self = shared_from_this()] {
    {
      Lock held(self->mutex_);
      self->store(held, std::exchange(self->delayed_, {}));
    }
    self->notify();
  });
}

void Port::notify() {
  EventHandle* event = nullptr;
  {
    const Lock lock(mutex_);
    if (event_ == nullptr || isRetrying_) return;
    event = event_;
    isNotifying_ = true;
  }
  isRetrying_ = !Signal(*event);
  {
    const Lock lock(mutex_);
    isNotifying_ = false;
    notified_.notify_all();
  }
  if (!isRetrying_) return;
  loop_.after(kPatience, [self = shared_from_this()] {
    self->isRetrying_ = false;
    self->notify();
  });
}

}  // namespace qvsim
