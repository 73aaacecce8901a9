#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "peer.h"
#include "quorvio/quorvio.h"

namespace qvsoak {

using Duration = std::chrono::steady_clock::duration;

/// A channel that is opened, brought into a state, and closed in it, again and again. What does not go as it
/// must ends the program with an exception.
class Subject {
 public:
  Subject(Kind kind, Workshop& workshop, const std::string& chip) : peer_(MakePeer(kind, workshop, chip)) {}

  /// Opens; when it returns the receive thread has handed out a first byte.
  void open();

  // States.
  void receive();
  void sendUntilBlocked();
  void lose(Fault fault);

  [[nodiscard]] Duration closeWithWait() const;

  /// The time from a close in the receive callback until its thread, which releases the device, has ended.
  [[nodiscard]] Duration closeInCallback();

  /// After the close: puts the peer back into its first state. Throws when a blocked send did not end by the
  /// close.
  void tidyUp();

 private:
  static void onReceive(void* self, const uint8_t* data, std::size_t length);
  static void onError(void* self, uint32_t code);

  std::unique_ptr<Peer> peer_;
  uint32_t handle_ = 0;
  std::thread sender_;
  std::atomic<uint32_t> sendResult_ = QV_IO_ERROR_TRANSMIT_FAILED;
  bool isSpoiled_ = false;  ///< the peer must be another one
  std::atomic<std::size_t> received_ = 0;
  std::atomic<int> notices_ = 0;
  std::atomic<bool> closesInCallback_ = false;
  std::atomic<int> receiveThread_ = 0;  ///< after it has closed the handle
  std::chrono::steady_clock::time_point closeBegan_;
};

}  // namespace qvsoak
