#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "io/ftdi/d2xx.h"
#include "sim/event_loop.h"
#include "sim/responder.h"
#include "util/byte_queue.h"

namespace qvsim {

/// One chip while it is open: what was set, its queues, and the device connected to it. The device lives on
/// the event loop's thread; all functions but the private ones are for any other thread. They return a
/// status.
///
/// The application's event is signalled without any lock of ours held: its owner may call us while he holds
/// the event's mutex.
class Port : public std::enable_shared_from_this<Port> {
 public:
  enum class Answers { AtOnce, AfterLatency };

  /// @param loop  outlives the port
  Port(EventLoop& loop, std::unique_ptr<Responder> device, Answers answers, bool stalled);

  /// What ended the port, or OK.
  [[nodiscard]] uint32_t state() const { return ended_; }

  /// Ends all calls with this status, those in progress at once. When it returns the event is not touched
  /// any more.
  void end(uint32_t status);

  uint32_t read(char* buffer, std::size_t size, uint32_t& got);
  uint32_t write(std::string_view bytes, uint32_t& written);
  void getStatus(uint32_t& received, uint32_t& toTransmit, uint32_t& events);
  void purge(uint32_t queues);

  void setTimeouts(uint32_t readMs, uint32_t writeMs);  ///< 0: none
  void setLatency(uint8_t ms);

  /// @param event  null: none; the former one is not touched any more
  uint32_t setEvent(uint32_t mask, qvio::d2xx::EventHandle* event);

  /// Remembers a setting that changes nothing here.
  void note(const std::string& name, std::initializer_list<uint32_t> values);

  /// All that was set, as "baud=9600 data=8,0,0", in alphabetical order.
  [[nodiscard]] std::string settings() const;

  void inject(std::string_view bytes);
  void setStalled(bool stalled);

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Deadline = std::chrono::steady_clock::time_point;

  void noteLocked(const std::string& name, std::initializer_list<uint32_t> values);
  void store(Lock& lock, std::string_view bytes);
  void transmit(Lock& lock);
  void forgetEvent(Lock& lock);

  // Loop's thread.
  void pump();
  void answerLater(std::string_view bytes);
  void notify();

  EventLoop& loop_;
  const std::unique_ptr<Responder> device_;
  const Answers answers_;
  std::string taken_;        ///< what the device gets; loop's thread only
  bool isRetrying_ = false;  ///< a notification is due; loop's thread only

  mutable std::mutex mutex_;  ///< guards what follows
  std::condition_variable readable_;
  std::condition_variable writable_;
  std::condition_variable notified_;
  std::atomic<uint32_t> ended_ = 0;  ///< written under the lock
  bool stalled_;
  bool pumpIsPosted_ = false;
  std::string toTransmit_;
  std::string delayed_;  ///< answers that wait in the chip
  cppu::ByteQueue received_;
  std::size_t wanted_ = std::numeric_limits<std::size_t>::max();  ///< by the most modest of the blocked reads
  std::chrono::milliseconds readTimeout_{0};
  std::chrono::milliseconds writeTimeout_{0};
  std::chrono::milliseconds latency_{16};
  uint32_t eventMask_ = 0;
  uint32_t events_ = 0;
  qvio::d2xx::EventHandle* event_ = nullptr;
  bool isNotifying_ = false;
  uint32_t purges_ = 0;
  std::map<std::string, std::string> settings_;
};

}  // namespace qvsim
