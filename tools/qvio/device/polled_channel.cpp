#include "device/polled_channel.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "device/failure_text.h"
#include "terminal/failure.h"
#include "util/signals_blocked.h"

namespace qvio_tool {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kInboxBytes = std::size_t{1} << 20U;
constexpr std::size_t kWaitingSends = 1000;
constexpr milliseconds kLongestDelay{1000};
constexpr milliseconds kLasting{20};

/// "connection lost (result 7)".
std::string TextOf(std::error_code why) {
  return why.message() + " (result " + std::to_string(why.value()) + ")";
}

/// "12.3 s".
std::string SecondsSince(Clock::time_point begin) {
  std::array<char, 32> text{};
  const auto seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  std::snprintf(text.data(), text.size(), "%.1f s", seconds);
  return text.data();
}

}  // namespace

PolledChannel::PolledChannel(ChannelOptions options)
    : options_(std::move(options)), inbox_(kInboxBytes / QV_IO_RECEIVE_CHUNK), outbox_(kWaitingSends) {
  openFirst();
  const cppu::AllSignalsBlocked inherited;
  thread_ = std::thread([this] { serve(); });
}

void PolledChannel::openFirst() try {
  openLasting();
  link()->lock.reportSurprises(options_);
} catch (const CommandFailure& failure) {
  if (!options_.reconnects || failure.status() == WrongUsage) throw;
}

void PolledChannel::close() {
  if (!thread_.joinable()) return;
  inbox_.close();  // first: a callback may be waiting for room
  outbox_.close();
  losses_.close();
  if (const auto open = link()) open->channel.close();  // ends a send
  thread_.join();
  link_.reset();
}

std::shared_ptr<PolledChannel::Link> PolledChannel::link() const {
  const std::lock_guard lock(mutex_);
  return link_;
}

void PolledChannel::open() try {
  SerialPortLock lock(options_);
  const auto onReceive = [this](std::string_view bytes) {
    inbox_.push({Arrival::Kind::Bytes, std::string(bytes)});
  };
  const auto onLost = [this](std::error_code why) { this->onLost(why); };
  quorvio::Channel channel(options_.locator, quorvio::Options::fromLines(options_.text()), onReceive, onLost);
  const auto opened = std::make_shared<Link>(Link{std::move(lock), std::move(channel)});
  const std::lock_guard guard(mutex_);
  if (!outbox_.isClosed()) link_ = opened;  // else close() has looked already
} catch (const quorvio::Error& error) {
  throw OpenFailure(static_cast<uint32_t>(error.code().value()), options_);
}

/// A port that refuses connections can be opened all the same, and shows at once that it is lost.
void PolledChannel::openLasting() {
  open();
  if (!options_.reconnects || !losses_.wait(Clock::now() + kLasting)) return;
  dropLink();
  throw CommandFailure("the link ends at once, as when a port refuses connections");
}

/// On the channel's receive thread.
void PolledChannel::onLost(std::error_code why) {
  // An unplugged serial port shows as a receive that fails, again and again.
  const bool isLost = options_.isSerial() || why == quorvio::Errc::connectionLost;
  const auto text = isLost ? "the device is gone: " + TextOf(why) : TextOf(why);
  if (!isLost || !options_.reconnects) {
    inbox_.push({isLost ? Arrival::Kind::Lost : Arrival::Kind::Notice, text});
    return;
  }
  static_cast<void>(losses_.tryPush(text));             // one is enough
  if (const auto lost = link()) lost->channel.close();  // ends a send
}

/// The thread.
void PolledChannel::serve() {
  while (!outbox_.isClosed()) {
    const auto losses = losses_.take();
    for (const auto& text : losses) inbox_.push({Arrival::Kind::Notice, text});
    if (!losses.empty() || !isOpen()) {
      awaitDevice();
      continue;  // without a link at the end
    }
    for (const auto& bytes : outbox_.take(1)) sendOne(bytes);
    std::array<pollfd, 2> entries{{{outbox_.readyFd(), POLLIN, 0}, {losses_.readyFd(), POLLIN, 0}}};
    cppu::PollUntil(entries, {});
  }
}

void PolledChannel::sendOne(const std::string& bytes) try {
  link()->channel.send(bytes);
  inbox_.push({Arrival::Kind::Sent, {}});
} catch (const quorvio::Error& error) {
  const bool isCutOff = error.code() == quorvio::Errc::invalidHandle;  // closed by onLost()
  inbox_.push({Arrival::Kind::SendFailed, isCutOff ? "the device is gone; not all was sent" : FailureText()});
}

/// Returns when the device is open (again), or at the end.
void PolledChannel::awaitDevice() {
  const auto goneAt = Clock::now();
  const bool wasOpen = dropLink();
  std::string reason;
  while (!losses_.wait(Clock::now() + delay_)) {  // without a link only the end comes here
    delay_ = std::min(2 * delay_, kLongestDelay);
    if (!tryOpen(reason)) continue;
    const std::string what = wasOpen ? "the device is back after " : "the device is there after ";
    inbox_.push({Arrival::Kind::Notice, what + SecondsSince(goneAt)});
    return;
  }
}

/// Closes the lost link, if there is one; from there on no callback runs. A link that is lost again and again
/// is opened less and less often.
bool PolledChannel::dropLink() {
  const auto lost = [this] {
    const std::lock_guard lock(mutex_);
    return std::exchange(link_, nullptr);
  }();
  if (lost) lost->channel.close();
  losses_.take();
  if (lost && Clock::now() - lost->since > kLongestDelay) delay_ = kFirstDelay;
  return lost != nullptr;
}

/// A reason is reported once as long as it stays the same.
bool PolledChannel::tryOpen(std::string& lastReason) try {
  openLasting();
  return true;
} catch (const CommandFailure& failure) {
  const std::string_view text(failure.what());
  const std::string reason(text.substr(0, text.find('\n')));  // without the hint
  if (lastReason != reason) inbox_.push({Arrival::Kind::Notice, "waiting for the device: " + reason});
  lastReason = reason;
  return false;
}

}  // namespace qvio_tool
