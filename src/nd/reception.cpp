#include "nd/reception.h"

#include <chrono>
#include <exception>
#include <string>
#include <utility>

#include "nd/log.h"
#include "nd/packet_text.h"
#include "util/forced_unwind.h"

namespace quorvind {
namespace {

using namespace std::chrono_literals;

constexpr int64_t kReceiveTimeoutMs = 5000;  // any: a close wakes the thread at once
constexpr auto kRestAfterFault = 100ms;      // a transport that keeps failing must not cost a core

}  // namespace

Reception::Reception(std::shared_ptr<Connection> connection, std::shared_ptr<Answers> answers)
    : connection_(std::move(connection)), answers_(std::move(answers)) {}

void Reception::run() {
  while (!isStopped()) {
    try {
      receiveOnce();
    } catch (const std::exception& failure) {
      rest(failure.what());
    } catch (...) {
      if (cppu::IsForcedUnwind()) throw;
      rest("unknown failure");
    }
  }
}

void Reception::stop() noexcept {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  wakeUp_.notify_all();
  connection_->Close(false);  // without wait: this may be the receive thread, in a listener
}

bool Reception::isStopped() {
  const std::lock_guard lock(mutex_);
  return stopped_;
}

void Reception::rest(std::string_view failure) {
  LogWarning("Host could not process a datagram", failure);
  std::unique_lock lock(mutex_);
  wakeUp_.wait_for(lock, kRestAfterFault, [this] { return stopped_; });
}

void Reception::receiveOnce() {
  uint32_t networkId = 0;
  IP4 sender{};
  QV_ND_RawPacket datagram;
  if (!connection_->Receive(networkId, sender, datagram.Data, kReceiveTimeoutMs)) return;
  QV_ND_Packet packet;
  const bool valid = DecodePacket(datagram.Data, packet);
  // A lambda, because the log is usually off and the text is not needed then.
  const auto origin = [&] { return connection_->NetworkName(networkId) + " from " + IP4ToString(sender); };
  if (IsLogged(LogCategory::RawDatagrams)) {
    Log(LogCategory::RawDatagrams, std::string("Host got ") + (valid ? "valid " : "invalid ") +
                                       "raw packet over " + origin() + ": " + ToString(datagram));
  }
  if (!valid) return;
  if (IsLogged(LogCategory::Packets))
    Log(LogCategory::Packets, "Host got packet over " + origin() + ": " + ToString(packet));
  answers_->dispatch(packet, sender);
}

}  // namespace quorvind
