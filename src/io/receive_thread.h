#pragma once

#include <functional>
#include <memory>

#include "io/io_device.h"
#include "util/thread.h"

namespace qvio {

/// The receive thread of a channel. It alone keeps the channel alive from its first moment on, whatever the
/// application does.
class ReceiveThread {
 public:
  /// Throws std::system_error when no thread can be had; then nothing holds the channel.
  void start(std::shared_ptr<IoDevice> self, std::function<void()> body);

  /// To be called once the body was told to end. Does not wait if told so, and never on the thread itself:
  /// then the thread is retired.
  void end(bool wait);

 private:
  std::shared_ptr<IoDevice> keepAlive_;  ///< from the start to the first moment of the thread
  cppu::Thread thread_;
};

}  // namespace qvio
