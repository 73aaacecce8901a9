#include "sim/byte_stream.h"

#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <utility>

namespace qvsim {
namespace {

constexpr std::size_t kReadSize = 65536;
constexpr std::size_t kLargestBacklog = 4 * kReadSize;

}  // namespace

ByteStream::ByteStream(EventLoop& loop, cppu::UniqueFd fd, std::unique_ptr<Responder> responder,
                       std::function<void()> onEnd)
    : loop_(loop), fd_(std::move(fd)), responder_(std::move(responder)), onEnd_(std::move(onEnd)) {
  loop_.watch(fd_.get(), EPOLLIN, [this](uint32_t events) { onEvents(events); });
}

ByteStream::~ByteStream() { loop_.forget(fd_.get()); }

bool ByteStream::hasUnread() const {
  int waiting = 0;
  return ::ioctl(fd_.get(), FIONREAD, &waiting) == 0 && waiting > 0;
}

void ByteStream::setReading(Reading reading) {
  reading_ = reading;
  updateInterest();
}

void ByteStream::sendForever() {
  sendsForever_ = true;
  updateInterest();
}

void ByteStream::shutDownSending() {
  ::shutdown(fd_.get(), SHUT_WR);
  reading_ = Reading::Discarding;
  updateInterest();
}

void ByteStream::onEvents(uint32_t events) {
  const bool broken = (events & (EPOLLHUP | EPOLLERR)) != 0;
  const bool alive = receive(broken) && flush();
  if (!alive || (peerEnded_ && output_.empty()))
    return std::exchange(onEnd_, {})();  // may have destroyed this
  updateInterest();
}

/// False when the link has ended.
bool ByteStream::receive(bool broken) {
  if (!reads()) return !broken;
  std::array<char, kReadSize> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by read
  const auto got = ::read(fd_.get(), buffer.data(), buffer.size());
  if (got < 0) return errno == EAGAIN || errno == EINTR;
  if (got == 0) peerEnded_ = true;  // what it asked for before is still answered
  if (reading_ == Reading::Answering)
    output_ += responder_->answer({buffer.data(), static_cast<std::size_t>(got)});
  return true;
}

bool ByteStream::reads() const {
  return reading_ != Reading::Stalled && !peerEnded_ && output_.size() - sent_ < kLargestBacklog;
}

bool ByteStream::flush() {
  if (sendsForever_ && output_.empty()) output_.assign(kReadSize, '.');
  while (sent_ < output_.size()) {
    const auto written = ::write(fd_.get(), output_.data() + sent_, output_.size() - sent_);
    if (written < 0) break;
    sent_ += static_cast<std::size_t>(written);
  }
  const bool alive = sent_ == output_.size() || errno == EAGAIN || errno == EINTR;
  dropSent();
  return alive;
}

/// Frees the bytes that are sent from time to time: a stream that is never empty must not grow.
void ByteStream::dropSent() {
  if (sent_ < output_.size() && sent_ < kLargestBacklog) return;
  output_.erase(0, sent_);
  sent_ = 0;
}

void ByteStream::updateInterest() {
  const bool writes = sendsForever_ || !output_.empty();
  loop_.change(fd_.get(), (reads() ? EPOLLIN : 0U) | (writes ? EPOLLOUT : 0U));
}

}  // namespace qvsim
