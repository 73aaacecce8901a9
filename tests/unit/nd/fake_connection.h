#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "nd/errors.h"
#include "nd/host.h"
#include "support/wait.h"

namespace quorvind {

/// A network in memory: every datagram comes from 10.0.0.9 on network 1.
class FakeConnection final : public Connection {
 public:
  std::vector<QV_ND_Packet> sent;  ///< on network 0; the thread that asks
  std::function<void()> onSend = [] {};

  /// Lets the host receive the datagram; with an empty one Receive throws.
  void put(const Bytes& datagram) {
    const std::lock_guard lock(mutex_);
    incoming_.push_back(datagram);
    changed_.notify_all();
  }
  void put(const QV_ND_Packet& packet) { put(EncodePacket(packet)); }
  void announce(const std::string& serialNumber, uint8_t available = 1, uint8_t opCode = 0xA1) {
    put({1, opCode, 7, serialNumber, {}, {1, available, 0x88, 0x13, 2, 'h', 'i', 0}});
  }
  /// Waits until the host has dealt with all that was put in.
  [[nodiscard]] bool isDealtWith() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, qvtest::kGenerous, [this] { return waiting_ && incoming_.empty(); });
  }

  void Close(bool /*wait*/) override {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    changed_.notify_all();
  }
  [[nodiscard]] std::string NetworkName(uint32_t id) const override { return "Net " + std::to_string(id); }
  bool Receive(uint32_t& networkId, IP4& sender, Bytes& data, int64_t /*timeoutMs*/) override {
    std::unique_lock lock(mutex_);
    waiting_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return closed_ || !incoming_.empty(); });
    waiting_ = false;
    if (closed_) return false;
    networkId = 1;
    sender = {10, 0, 0, 9};
    data = std::move(incoming_.front());
    incoming_.pop_front();
    return data.empty() ? throw NetworkException("receive") : true;
  }
  void Send(uint32_t networkId, const Bytes& data) override {
    QV_ND_Packet packet;
    if (networkId == 0 && DecodePacket(data, packet)) sent.push_back(packet);
    onSend();
  }

 private:
  std::mutex mutex_;  ///< guards what follows
  std::condition_variable changed_;
  std::deque<Bytes> incoming_;
  bool waiting_ = false;  ///< in Receive
  bool closed_ = false;
};

/// Starts the host, which then owns the network.
inline FakeConnection* StartOnFake(Host& host) {
  auto* const fake = new FakeConnection;
  host.start(std::unique_ptr<Connection>(fake));
  return fake;
}

/// The text of what the action must throw.
template <class Exception>
std::string TextOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Exception& failure) {
    return failure.what();
  }
  return "nothing of the kind was thrown";
}

}  // namespace quorvind
