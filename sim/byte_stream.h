#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "sim/event_loop.h"
#include "sim/responder.h"
#include "util/unique_fd.h"

namespace qvsim {

/// How a stream treats what it receives.
enum class Reading {
  Answering,   ///< hands it to the responder
  Discarding,  ///< reads and forgets it
  Stalled      ///< reads nothing, so that the peer's sends get stuck
};

/// One byte link of a device: receives, answers, and keeps what the peer does not take yet, up to a bound
/// above which it reads no more. Event loop's thread only.
class ByteStream {
 public:
  /// @param fd      non-blocking
  /// @param onEnd   called once when the peer has closed or the link broke; may destroy the stream
  ByteStream(EventLoop& loop, cppu::UniqueFd fd, std::unique_ptr<Responder> responder,
             std::function<void()> onEnd);
  ByteStream(const ByteStream&) = delete;
  ByteStream& operator=(const ByteStream&) = delete;
  ~ByteStream();

  [[nodiscard]] int fd() const { return fd_.get(); }
  [[nodiscard]] bool hasUnread() const;

  void setReading(Reading reading);

  /// Sends without end, as fast as the peer takes it.
  void sendForever();

  /// Sends no more; with the peer's next receive its direction of the link ends. TCP only.
  void shutDownSending();

 private:
  void onEvents(uint32_t events);
  [[nodiscard]] bool receive(bool broken);
  [[nodiscard]] bool reads() const;
  [[nodiscard]] bool flush();
  void dropSent();
  void updateInterest();

  EventLoop& loop_;
  cppu::UniqueFd fd_;
  std::unique_ptr<Responder> responder_;
  std::function<void()> onEnd_;
  Reading reading_ = Reading::Answering;
  bool peerEnded_ = false;
  bool sendsForever_ = false;
  std::string output_;
  std::size_t sent_ = 0;  ///< bytes of output_ that are gone
};

}  // namespace qvsim
