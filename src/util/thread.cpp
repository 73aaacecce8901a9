#include "util/thread.h"

#include <pthread.h>

#include <csignal>
#include <utility>

namespace cppu {
namespace {

/// Blocks all signals of the calling thread during its life; a thread started meanwhile inherits the mask.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace

Thread::Thread(const char* name, std::function<void()> body) {
  std::promise<void> ended;
  ended_ = ended.get_future();
  const AllSignalsBlocked inherited;
  thread_ = std::thread([name, body = std::move(body), ended = std::move(ended)]() mutable {
    pthread_setname_np(pthread_self(), name);
    body();
    body = nullptr;  // what the body holds is released before its end is told
    ended.set_value();
  });
}

}  // namespace cppu
