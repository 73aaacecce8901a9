#include "device/channel_use.h"

#include <unistd.h>

#include <utility>

#include "device/failure_text.h"
#include "terminal/failure.h"
#include "terminal/output.h"
#include "terminal/text.h"
#include "util/signals_blocked.h"

namespace qvio_tool {
namespace {

constexpr std::size_t kInboxBytes = std::size_t{1} << 20U;
constexpr std::size_t kWaitingSends = 1000;
constexpr std::size_t kKeptAnswer = std::size_t{1} << 20U;

/// "connection lost (result 7)".
std::string TextOf(std::error_code why) {
  return why.message() + " (result " + std::to_string(why.value()) + ")";
}

}  // namespace

PolledChannel::PolledChannel(const ChannelOptions& options)
    : lock_(options),
      inbox_(kInboxBytes / QV_IO_RECEIVE_CHUNK),
      outbox_(kWaitingSends),
      channel_(open(options)) {
  lock_.reportSurprises(options);
  const cppu::AllSignalsBlocked inherited;
  sender_ = std::thread([this] { sendQueued(); });
}

void PolledChannel::close() {
  if (!sender_.joinable()) return;
  inbox_.close();  // first: a callback may be waiting for room
  outbox_.close();
  channel_.close();
  sender_.join();
}

quorvio::Channel PolledChannel::open(const ChannelOptions& options) try {
  const auto onReceive = [this](std::string_view bytes) {
    inbox_.push({Arrival::Kind::Bytes, std::string(bytes)});
  };
  // An unplugged serial port shows as a receive that fails, again and again.
  const auto onLost = [this, isSerial = options.isSerial()](std::error_code why) {
    const bool isLost = isSerial || why == quorvio::Errc::connectionLost;
    isLost ? inbox_.push({Arrival::Kind::Lost, "the device is gone: " + TextOf(why)})
           : inbox_.push({Arrival::Kind::Notice, TextOf(why)});
  };
  return {options.locator, quorvio::Options::fromLines(options.text()), onReceive, onLost};
} catch (const quorvio::Error& error) {
  throw OpenFailure(static_cast<uint32_t>(error.code().value()), options);
}

void PolledChannel::sendQueued() {
  while (outbox_.wait({}) && !outbox_.isClosed()) {
    for (const auto& bytes : outbox_.take(1)) sendOne(bytes);
  }
}

void PolledChannel::sendOne(const std::string& bytes) try {
  channel_.send(bytes);
  inbox_.push({Arrival::Kind::Sent, {}});
} catch (const quorvio::Error&) {
  inbox_.push({Arrival::Kind::SendFailed, FailureText()});
}

bool Exchange::send(const std::string& bytes, cppu::Deadline deadline) {
  if (!channel_.send(bytes)) throw CommandFailure("too many sends are waiting");
  sent_ = false;
  while (!sent_ && !lost_ && !cppu::HasPassed(deadline) && receiveUntil(deadline)) {
  }
  return sent_;
}

bool Exchange::receiveUntil(cppu::Deadline deadline) {
  if (!channel_.wait(deadline)) return false;
  for (const auto& arrival : channel_.take()) handle(arrival);
  return true;
}

void Exchange::handle(const Arrival& arrival) {
  switch (arrival.kind) {
    case Arrival::Kind::Bytes:
      if (!prints_) return;
      WriteAll(STDOUT_FILENO, hex_ ? (received_ == 0 ? "" : " ") + ToHex(arrival.text) : arrival.text);
      if (answer_.size() > 2 * kKeptAnswer) answer_.erase(0, kKeptAnswer);
      answer_ += arrival.text;
      received_ += arrival.text.size();
      lastByte_ = Clock::now();
      return;
    case Arrival::Kind::Lost:
      lost_ = true;
      [[fallthrough]];
    case Arrival::Kind::Notice:
      return WriteAll(STDERR_FILENO, "qvio: " + arrival.text + '\n');
    case Arrival::Kind::Sent:
      sent_ = true;
      return;
    case Arrival::Kind::SendFailed:
      throw CommandFailure(arrival.text);
  }
}

void Exchange::finish() const {
  if (hex_ && received_ > 0) WriteAll(STDOUT_FILENO, "\n");
}

}  // namespace qvio_tool
