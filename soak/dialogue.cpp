#include "dialogue.h"

#include <utility>
#include <vector>

#include "quorvio/quorvio.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 20s;  ///< far above what anything takes on a loaded machine

}  // namespace

Dialogue::Dialogue(Ledger& ledger, std::string name, uint64_t seed)
    : ledger_(ledger), name_(std::move(name)), stream_(seed) {}

void Dialogue::expectLoss(const std::string& cause) {
  const std::lock_guard lock(mutex_);
  if (cause_.empty()) cause_ = cause;
}

uint32_t Dialogue::open(const Peer& peer) {
  // A peer that stalls for a moment must not end a send.
  const auto options = std::string(peer.options()) + "\ntx-timeout 20000";
  return QV_IO_Open(&handle_, peer.locator().c_str(), options.c_str(), this, onReceive, onError);
}

template <class Condition>
bool Dialogue::await(Condition condition) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, condition);
}

bool Dialogue::send(std::size_t size) {
  std::vector<uint8_t> piece(size);
  {
    const std::lock_guard lock(mutex_);
    stream_.fill(piece, sent_);
    sent_ += size;
  }
  const auto result = QV_IO_Send(handle_, piece.data(), piece.size());
  const std::lock_guard lock(mutex_);
  if (result != QV_IO_OK && cause_.empty() && !isTaken_)
    blame("a send failed without a cause: " + std::to_string(result));
  return result == QV_IO_OK;
}

bool Dialogue::awaitEcho(uint64_t onTheirWay) {
  if (!await([&] { return notices_ > 0 || sent_ - received_ <= onTheirWay; })) {
    const auto so = result();
    blame(so.cause.empty() ? std::to_string(so.sent - so.received) + " bytes did not come back"
                           : "not told that the peer " + so.cause);
    return false;
  }
  const std::lock_guard lock(mutex_);
  return notices_ == 0;
}

void Dialogue::awaitNotice() {
  if (!await([&] { return notices_ > 0 || isTaken_; })) blame("not told that the peer " + result().cause);
}

bool Dialogue::isEstablished() const {
  const std::lock_guard lock(mutex_);
  return received_ > 0 && notices_ == 0 && !isTaken_;
}

bool Dialogue::hasCause() const {
  const std::lock_guard lock(mutex_);
  return !cause_.empty();
}

bool Dialogue::takeHandle() {
  const std::lock_guard lock(mutex_);
  return !std::exchange(isTaken_, true);
}

void Dialogue::close(bool wait) {
  if (!takeHandle()) return;
  if (const auto result = QV_IO_Close(handle_, wait ? 1 : 0); result != QV_IO_OK)
    blame("closing failed: " + std::to_string(result));
  const std::lock_guard lock(mutex_);
  isSilent_ = wait;
}

void Dialogue::closeFromCallback(std::size_t size) {
  {
    const std::lock_guard lock(mutex_);
    closesAt_ = sent_ + 1;
  }
  std::ignore = send(size);  // may end early, since the handle is closed meanwhile
  if (!await([&] { return isTaken_ || notices_ > 0; }))
    blame("the bytes that close the handle did not come back");
  close(false);  // the link was lost before
}

Dialogue::Result Dialogue::result() const {
  const std::lock_guard lock(mutex_);
  return {sent_, received_, notices_, cause_};
}

void Dialogue::onReceive(void* self, const uint8_t* data, std::size_t length) {
  static_cast<Dialogue*>(self)->receive({data, length});
}

void Dialogue::onError(void* self, uint32_t code) { static_cast<Dialogue*>(self)->notice(code); }

/// Receive thread.
void Dialogue::receive(std::span<const uint8_t> bytes) {
  {
    const std::lock_guard lock(mutex_);
    if (isSilent_) blame("bytes after the close");
    const auto right = stream_.matching(bytes, received_);
    if (right < bytes.size() && !std::exchange(isSpoiled_, true))
      blame(stream_.explain(bytes.subspan(right), received_ + right));
    received_ += bytes.size();
    if (received_ > sent_ && !std::exchange(isSpoiled_, true)) blame("more bytes than were sent");
    changed_.notify_all();
    if (!closesAt_ || received_ < *closesAt_ || std::exchange(isTaken_, true)) return;
  }
  // Asked to wait, which a callback of the handle never does.
  if (const auto result = QV_IO_Close(handle_, 1); result != QV_IO_OK)
    blame("closing in a callback failed: " + std::to_string(result));
}

/// Receive thread.
void Dialogue::notice(uint32_t code) {
  const std::lock_guard lock(mutex_);
  if (isSilent_) blame("a notice after the close");
  if (cause_.empty()) blame("notice " + std::to_string(code) + " without a cause");
  ++notices_;
  changed_.notify_all();
}

}  // namespace qvsoak
