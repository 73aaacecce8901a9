#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "ledger.h"
#include "peer.h"
#include "stream.h"

namespace qvsoak {

/// One handle from its opening to its closing, with an echoing peer: what is sent must come back, and nothing
/// else; a notice must have a cause; after a close with wait there must be no callback. What is not so is
/// told to the ledger. It must outlive the last callback.
class Dialogue {
 public:
  /// @param name  of the channel, for the ledger
  Dialogue(Ledger& ledger, std::string name, uint64_t seed);
  Dialogue(const Dialogue&) = delete;
  Dialogue& operator=(const Dialogue&) = delete;
  ~Dialogue() = default;

  /// From now on notices and failed sends have this cause. Any thread, before the fault is made.
  void expectLoss(const std::string& cause);

  uint32_t open(const Peer& peer);

  /// Sends the next bytes of the stream. False when that failed.
  [[nodiscard]] bool send(std::size_t size);

  /// Waits until at most so many bytes are still on their way. False when the link is lost, or when nothing
  /// comes.
  [[nodiscard]] bool awaitEcho(uint64_t onTheirWay);

  /// Waits until the cause that was given has been told.
  void awaitNotice();

  /// Bytes have come, and no notice.
  [[nodiscard]] bool isEstablished() const;
  [[nodiscard]] bool hasCause() const;

  void close(bool wait);

  /// Sends the bytes, and the receive callback that brings the first of them closes the handle.
  void closeFromCallback(std::size_t size);

  struct Result {
    uint64_t sent;
    uint64_t received;
    uint64_t notices;
    std::string cause;
  };
  [[nodiscard]] Result result() const;

 private:
  static void onReceive(void* self, const uint8_t* data, std::size_t length);
  static void onError(void* self, uint32_t code);

  void receive(std::span<const uint8_t> bytes);
  void notice(uint32_t code);
  [[nodiscard]] bool takeHandle();
  template <class Condition>
  [[nodiscard]] bool await(Condition condition);
  void blame(const std::string& words) { ledger_.violation(name_ + ": " + words); }

  Ledger& ledger_;
  const std::string name_;
  const Stream stream_;
  uint32_t handle_ = 0;  ///< written before callbacks need it

  mutable std::mutex mutex_;  ///< guards what follows
  std::condition_variable changed_;
  std::string cause_;
  uint64_t sent_ = 0;  ///< what may come back
  uint64_t received_ = 0;
  uint64_t notices_ = 0;
  std::optional<uint64_t> closesAt_;  ///< received bytes at which the callback closes
  bool isTaken_ = false;              ///< somebody closes the handle
  bool isSilent_ = false;             ///< no callback may come any more
  bool isSpoiled_ = false;            ///< the stream was wrong: told once
};

}  // namespace qvsoak
