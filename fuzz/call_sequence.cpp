#include "call_sequence.h"

#include <array>
#include <chrono>
#include <initializer_list>
#include <string_view>

#include "check.h"
#include "plain_calls.h"
#include "quorvio/quorvio.h"
#include "support/wait.h"
#include "text_buffer.h"
#include "util/thread.h"

namespace qvfuzz {
namespace {

constexpr int kSteps = 48;
constexpr std::size_t kMostOpens = 160;

}  // namespace

CallSequence::CallSequence(Decisions decisions, Links& links)
    : decisions_(decisions), links_(links), texts_(links.hasDiscovery()) {}

CallSequence::~CallSequence() {
  model_.forEachOpen([this](uint32_t handle, OpenChannel& channel) { closeOpen(handle, channel, true); });
  EndPlainCalls();
  Check(cppu::Threads::all().endAll(qvtest::kGenerous), "a closed channel ends");
  cppu::Threads::all().reopen();
  for (const uint32_t handle : {0U, 1U, 63U, 64U})
    Check(QV_IO_Close(handle, 1) == QV_IO_ERROR_INVALID_HANDLE, "a closed handle is unknown");
  links_.allAreReleased();
}

void CallSequence::run() {
  for (int steps = 0; steps < kSteps && !decisions_.ended(); ++steps) step();
}

void CallSequence::step() {
  switch (decisions_.below(16)) {
    case 0:
    case 1:
    case 2:
      return openKnown();
    case 3:
      return openRandom();
    case 4:
    case 5:
      return close();
    case 6:
    case 7:
    case 8:
      return send();
    case 9:
    case 10:
      return getProperty();
    case 11:
      return callFromCallback();
    case 12:
      return decisions_.byte() < 16 ? openMany() : loseTcpPeers();
    default:
      return MakePlainCall(decisions_, texts_);
  }
}

/// The next step on the receive thread of a channel, while this thread waits for it.
void CallSequence::callFromCallback() {
  const auto handle = anyHandle();
  auto* const channel = model_.at(handle);
  if (callback_ != nullptr || channel == nullptr || !channel->echoes()) return;
  callback_ = channel;
  // Earlier bytes may trigger the step as well, which may close the handle before this send.
  channel->runInCallback([this] { step(); }, [handle] { QV_IO_Send(handle, "!", 1); });
  callback_ = nullptr;
}

/// Mostly an open one.
uint32_t CallSequence::anyHandle() {
  const auto choice = decisions_.byte();
  if (choice >= 240) return decisions_.number();
  std::vector<uint32_t> open;
  model_.forEachOpen([&](uint32_t handle, const OpenChannel&) { open.push_back(handle); });
  return open.empty() || choice >= 224 ? choice % 66U : open[choice % open.size()];
}

OpenChannel* CallSequence::open(Link* link, const std::string& locator, const std::string& options,
                                uint32_t& result) {
  const auto choice = decisions_.byte();
  const bool hasReceive = choice % 8 != 1;
  const bool hasError = choice / 8 % 4 != 1;
  channels_.push_back(std::make_unique<OpenChannel>(link, hasReceive));
  auto* const channel = channels_.back().get();
  const auto free = model_.lowestFree();
  uint32_t handle = 99;
  result = QV_IO_Open(&handle, locator.c_str(), options.empty() && choice >= 128 ? nullptr : options.c_str(),
                      channel, hasReceive ? &OpenChannel::onReceive : nullptr,
                      hasError ? &OpenChannel::onError : nullptr);
  if (result != QV_IO_OK) {
    Check(handle == 0, "a failed open gives handle 0");
    channel->isClosed();
    return nullptr;
  }
  Check(free.has_value() && handle == *free, "the lowest free handle is given out");
  model_.opened(handle, *channel);
  return channel;
}

/// The last link, a dual-channel chip, takes 10 ms to open: rarely.
void CallSequence::openKnown() {
  auto& links = links_.all();
  const auto choice = decisions_.below(64);
  open(choice == 63 ? links.back() : links[choice % (links.size() - 1)]);
}

void CallSequence::openMany() {
  auto& link = links_.all()[2];
  for (int times = 0; times <= QV_IO_HANDLE_COUNT; ++times) open(link);
}

void CallSequence::open(Link& link) {
  if (channels_.size() >= kMostOpens) return;
  const bool isUsb = link.kind == Link::Kind::Usb;
  uint32_t expected = model_.lowestFree() ? QV_IO_OK : QV_IO_ERROR_NO_FREE_HANDLE;
  if (isUsb && link.users > 0) expected = QV_IO_ERROR_DEVICE_NOT_FOUND;
  if (isUsb && !links_.hasUsb()) expected = QV_IO_ERROR_DRIVER_UNAVAILABLE;
  uint32_t result = 0;
  auto* const channel = open(&link, link.locator, link.options, result);
  // A chip that was closed without wait may still be in use.
  const bool mayBeInUse = isUsb && !link.isReleased && result == QV_IO_ERROR_DEVICE_NOT_FOUND;
  Check(result == expected || mayBeInUse, "a link that is there can be opened");
  if (channel != nullptr) ++link.users;
}

void CallSequence::openRandom() {
  if (decisions_.byte() < 16) {
    uint32_t handle = 0;
    Check(QV_IO_Open(nullptr, "usb:ix:0", nullptr, nullptr, nullptr, nullptr) == QV_IO_ERROR_INVALID_ARGUMENT,
          "a handle has to go somewhere");
    Check(QV_IO_Open(&handle, nullptr, nullptr, nullptr, nullptr, nullptr) == QV_IO_ERROR_INVALID_LOCATOR,
          "a locator is needed");
    return;
  }
  if (channels_.size() >= kMostOpens) return;
  const auto locator = texts_.locator(decisions_);
  const auto options = texts_.searchOptions(decisions_);
  uint32_t result = 0;
  const auto* const channel = open(nullptr, locator, options, result);
  CheckResult(result, {QV_IO_OK, QV_IO_ERROR_NO_FREE_HANDLE, QV_IO_ERROR_INVALID_LOCATOR,
                       QV_IO_ERROR_DEVICE_NOT_FOUND, QV_IO_ERROR_INVALID_ARGUMENT, QV_IO_ERROR_DRIVER_FAILURE,
                       QV_IO_ERROR_QUERY_FAILED, QV_IO_ERROR_DRIVER_UNAVAILABLE});
  if (channel == nullptr || !locator.starts_with("usb:")) return;
  for (auto& link : links_.all()) link.isReleased = false;  // it may be any chip
}

void CallSequence::close() {
  const auto handle = anyHandle();
  const auto wait = decisions_.byte() % 3U;
  auto* const channel = model_.at(handle);
  if (channel != nullptr) return closeOpen(handle, *channel, wait != 0);
  Check(QV_IO_Close(handle, wait) == QV_IO_ERROR_INVALID_HANDLE, "a handle that is not open is refused");
}

void CallSequence::closeOpen(uint32_t handle, OpenChannel& channel, bool wait) {
  const bool waits = wait && &channel != callback_;
  auto* const link = channel.link();
  if (link != nullptr) {
    --link->users;
    if (!waits) link->isReleased = false;
  }
  Check(QV_IO_Close(handle, wait ? 1 : 0) == QV_IO_OK, "an open handle can be closed");
  if (waits) channel.isClosed();
  model_.closed(handle);
}

void CallSequence::send() {
  const auto handle = anyHandle();
  const auto repeat = decisions_.byte();
  std::string bytes(decisions_.text());
  if (repeat >= 192)
    while (!bytes.empty() && bytes.size() < 3000) bytes += bytes;
  const auto* const channel = model_.at(handle);
  const bool hasData = repeat % 16 != 1;
  const auto result = QV_IO_Send(handle, hasData ? bytes.data() : nullptr, bytes.size());
  if (channel == nullptr)
    return Check(result == QV_IO_ERROR_INVALID_HANDLE, "a handle that is not open is refused");
  if (bytes.empty()) return Check(result == QV_IO_OK, "nothing can be sent to anybody");
  if (!hasData) return Check(result == QV_IO_ERROR_INVALID_ARGUMENT, "bytes have to come from somewhere");
  if (channel->isIntact()) return Check(result == QV_IO_OK, "an intact link takes bytes");
  CheckResult(result, {QV_IO_OK, QV_IO_ERROR_CONNECTION_LOST, QV_IO_ERROR_TRANSMIT_FAILED});
}

void CallSequence::getProperty() {
  constexpr std::array<const char*, 4> kKeys{"ftdi-id", "", "available", nullptr};
  const auto handle = anyHandle();
  const auto* const key = decisions_.oneOf(kKeys);
  const auto call = CallForText(decisions_, SizeRule::Property, [&](char* buffer, std::size_t* size) {
    return QV_IO_GetProperty(handle, key, buffer, size);
  });
  const auto* const channel = model_.at(handle);
  if (channel == nullptr)
    return Check(call.result == QV_IO_ERROR_INVALID_HANDLE, "a handle that is not open is refused");
  if (call.badPointers || key == nullptr)
    return Check(call.result == QV_IO_ERROR_INVALID_ARGUMENT, "a property needs a key and room");
  Check(call.text.find_first_not_of("0123456789") == std::string::npos, "a property is empty or a number");
  CheckResult(call.result, {QV_IO_OK, QV_IO_ERROR_PROPERTY_UNAVAILABLE, QV_IO_ERROR_BUFFER_TOO_SMALL,
                            QV_IO_ERROR_NOT_SUPPORTED});
  if (channel->link() == nullptr || channel->link()->kind != Link::Kind::Tcp) return;
  Check(call.result == QV_IO_ERROR_PROPERTY_UNAVAILABLE, "a TCP link has no properties");
}

void CallSequence::loseTcpPeers() {
  model_.forEachOpen([](uint32_t, OpenChannel& channel) {
    if (channel.link() != nullptr && channel.link()->kind == Link::Kind::Tcp) channel.peerIsGone();
  });
  decisions_.flag() ? links_.hangUpTcp() : links_.resetTcp();
}

}  // namespace qvfuzz
