#include "io/ftdi/receive_event.h"

#include <cerrno>
#include <ctime>

namespace qvio {

ReceiveEvent::ReceiveEvent() {
  pthread_mutex_init(&event_.mutex, nullptr);
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);  // that of the deadlines
  pthread_cond_init(&event_.condition, &attributes);
  pthread_condattr_destroy(&attributes);
}

ReceiveEvent::~ReceiveEvent() {
  pthread_cond_destroy(&event_.condition);
  pthread_mutex_destroy(&event_.mutex);
}

bool ReceiveEvent::wait(const std::optional<std::chrono::steady_clock::time_point>& deadline) {
  if (!deadline) return pthread_cond_wait(&event_.condition, &event_.mutex) == 0;
  using namespace std::chrono;
  const auto time = deadline->time_since_epoch();
  const auto whole = floor<seconds>(time);
  timespec until{};
  until.tv_sec = static_cast<time_t>(whole.count());  // 32 bits on some systems
  until.tv_nsec = static_cast<long>(duration_cast<nanoseconds>(time - whole).count());
  return pthread_cond_timedwait(&event_.condition, &event_.mutex, &until) != ETIMEDOUT;
}

}  // namespace qvio
