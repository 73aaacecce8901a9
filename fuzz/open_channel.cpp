#include "open_channel.h"

#include <utility>

#include "check.h"
#include "support/wait.h"

namespace qvfuzz {

bool OpenChannel::echoes() const {
  const std::lock_guard lock(mutex_);
  return echoes_;
}

void OpenChannel::expectNoEcho() {
  const std::lock_guard lock(mutex_);
  echoes_ = false;
  awaited_.clear();
}

void OpenChannel::peerIsGone() {
  isBroken_ = true;
  expectNoEcho();
}

void OpenChannel::expect(std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  if (echoes_) awaited_ += bytes;
}

bool OpenChannel::isWaitingForEcho() const {
  const std::lock_guard lock(mutex_);
  return !awaited_.empty();
}

void OpenChannel::awaitEcho() {
  std::unique_lock lock(mutex_);
  Check(changed_.wait_for(lock, qvtest::kGenerous, [this] { return awaited_.empty(); }),
        "what is sent to an echo comes back");
}

void OpenChannel::runInCallback(std::function<void()> action, const std::function<void()>& trigger) {
  {
    const std::lock_guard lock(mutex_);
    action_ = std::move(action);
    isDone_ = false;
  }
  trigger();
  std::unique_lock lock(mutex_);
  Check(changed_.wait_for(lock, qvtest::kGenerous, [this] { return isDone_; }),
        "a call from within a callback returns");
}

void OpenChannel::enterCallback() {
  Check(!isClosed_, "no callback after a close that waited");
  Check(!isInCallback_.exchange(true), "one callback at a time");
}

void OpenChannel::onReceive(void* self, const uint8_t* data, std::size_t length) {
  auto& channel = *static_cast<OpenChannel*>(self);
  channel.enterCallback();
  const bool failed = length == static_cast<std::size_t>(-1);
  Check(failed || length <= QV_IO_RECEIVE_CHUNK, "a callback brings no more than a chunk");
  if (!failed) channel.receive({reinterpret_cast<const char*>(data), length});
  channel.leaveCallback();
}

void OpenChannel::receive(std::string_view bytes) {
  std::unique_lock lock(mutex_);
  if (echoes_) {
    Check(awaited_.starts_with(bytes), "an echo brings what was sent, in order");
    awaited_.erase(0, bytes.size());
  }
  if (auto action = std::exchange(action_, {})) {
    lock.unlock();
    action();
    lock.lock();
    isDone_ = true;
  }
  changed_.notify_all();
}

void OpenChannel::onError(void* self, uint32_t resultCode) {
  auto& channel = *static_cast<OpenChannel*>(self);
  channel.enterCallback();
  Check(resultCode == QV_IO_ERROR_CONNECTION_LOST || resultCode == QV_IO_ERROR_RECEIVE_FAILED,
        "a receiving channel reports two faults");
  channel.leaveCallback();
}

}  // namespace qvfuzz
