#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "channel.h"

namespace qvio_tool {

/// Sends on a thread of its own, so that a device that takes no bytes does not freeze the terminal. Ends with
/// its channel: destroy it after the channel was closed.
class BackgroundSender {
 public:
  explicit BackgroundSender(Channel& channel) : channel_(channel), thread_([this] { run(); }) {}
  BackgroundSender(const BackgroundSender&) = delete;
  BackgroundSender& operator=(const BackgroundSender&) = delete;
  ~BackgroundSender();

  /// Queues the bytes. A failure shows among the channel's arrivals.
  void send(const std::string& bytes);

 private:
  void run();

  Channel& channel_;
  std::mutex mutex_;  ///< guards queue_ and ended_
  std::condition_variable changed_;
  std::string queue_;
  bool ended_ = false;
  std::thread thread_;
};

}  // namespace qvio_tool
