#include "background_sender.h"

#include <utility>

#include "result_text.h"

namespace qvio_tool {

BackgroundSender::~BackgroundSender() {
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void BackgroundSender::send(const std::string& bytes) {
  {
    const std::lock_guard lock(mutex_);
    queue_ += bytes;
  }
  changed_.notify_one();
}

void BackgroundSender::run() {
  for (;;) {
    std::string bytes;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return ended_ || !queue_.empty(); });
      if (ended_) return;
      bytes = std::exchange(queue_, {});
    }
    try {
      channel_.send(bytes);
    } catch (const CommandFailure& failure) {
      channel_.addFailure(failure.what());
    }
  }
}

}  // namespace qvio_tool
