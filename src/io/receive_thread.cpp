#include "io/receive_thread.h"

#include <utility>

#include "util/retired_threads.h"

namespace qvio {

void ReceiveThread::start(std::shared_ptr<IoDevice> self, std::function<void()> body) {
  keepAlive_ = std::move(self);
  try {
    thread_ = cppu::Thread("qvio-rx", [this, body = std::move(body)] {
      const auto alive = std::move(keepAlive_);
      body();
    });
  } catch (...) {
    keepAlive_.reset();  // else the channel would hold itself for ever
    throw;
  }
}

void ReceiveThread::end(bool wait) {
  if (wait && !thread_.isCurrent()) {
    thread_.join();
  } else {
    cppu::Retired().add(std::move(thread_));
  }
}

}  // namespace qvio
