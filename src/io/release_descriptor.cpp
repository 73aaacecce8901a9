#include "io/release_descriptor.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <thread>
#include <utility>

#include "util/system_call.h"

namespace qvio {
namespace {

using namespace std::chrono_literals;

static_assert(TIOCOUTQ == SIOCOUTQ, "one request asks terminals and sockets");

/// The pause between two looks at a queue, since no event reports that it is empty. Short at first, because
/// most queues empty soon.
class Step {
 public:
  [[nodiscard]] std::chrono::milliseconds next() {
    return std::exchange(length_, std::min<std::chrono::milliseconds>(2 * length_, 20ms));
  }

 private:
  std::chrono::milliseconds length_ = 1ms;
};

void* CloseDescriptor(void* fd) {
  pthread_setname_np(pthread_self(), "qvio-close");
  ::close(*static_cast<const int*>(fd));
  return nullptr;
}

/// Finds out which file the number refers to. Not by fstat: ThreadSanitizer takes that for a use of the file,
/// which must not race with its close.
bool Identify(int fd, struct stat& file) { return ::fstatat(fd, "", &file, AT_EMPTY_PATH) == 0; }

/// Whether the number still refers to this file: freeing it is the system's first step of a close.
bool IsOpen(int fd, const struct stat& file) {
  struct stat now {};
  return Identify(fd, now) && now.st_dev == file.st_dev && now.st_ino == file.st_ino;
}

/// Closes without the 30 s that the kernel waits for a device that takes nothing. Only a signal to the
/// closing thread ends that wait, and all signals belong to the application except the one of pthread_cancel.
/// So a separate thread closes, and is cancelled as soon as the close has begun.
void CloseAtOnce(cppu::UniqueFd fd) {
  const int number = fd.get();
  struct stat file {};
  pthread_t closer{};
  int closing = number;
  if (!Identify(number, file)) return;
  if (::pthread_create(&closer, nullptr, CloseDescriptor, &closing) != 0)
    return;  // closed here, after the wait
  fd.release();
  while (IsOpen(number, file)) std::this_thread::sleep_for(1ms);  // cancelled too early, it would not close
  ::pthread_cancel(closer);
  ::pthread_join(closer, nullptr);
}

/// Drops what the peer has sent. False when nothing more will come.
bool DiscardInput(int fd) {
  std::array<uint8_t, 16384> dropped;
  const auto got =
      cppu::Uninterrupted([&] { return ::recv(fd, dropped.data(), dropped.size(), MSG_DONTWAIT); });
  return got > 0 || (got < 0 && errno == EAGAIN);
}

/// Ends the sending side and waits until the peer has all of it.
void DrainSocket(int fd, const StillWaits& stillWaits) {
  constexpr int kEndOfStream = 1;  // the shutdown queues it, and it counts as a byte
  Step step;
  const auto mayWait = [&] {
    const int queued = QueuedBytes(fd);
    return queued > kEndOfStream && stillWaits(queued);
  };
  // A lost connection keeps its count of queued bytes, but can no longer be shut down.
  while (::shutdown(fd, SHUT_WR) == 0 && mayWait()) {
    const auto rest = step.next();
    if (!DiscardInput(fd)) {
      std::this_thread::sleep_for(rest);  // poll would return at once
      continue;
    }
    std::array<pollfd, 1> entry{{{fd, POLLIN, 0}}};
    cppu::PollUntil(entry, std::chrono::steady_clock::now() + rest);
  }
}

bool InputWaits(int fd) {
  int waiting = 0;
  return ::ioctl(fd, FIONREAD, &waiting) == 0 && waiting > 0;
}

}  // namespace

int QueuedBytes(int fd) {
  int queued = 0;
  return ::ioctl(fd, TIOCOUTQ, &queued) < 0 ? 0 : queued;
}

void ReleaseTerminal(cppu::UniqueFd fd, const StillWaits& stillWaits) {
  Step step;
  int queued = QueuedBytes(fd.get());
  while (queued > 0 && stillWaits(queued)) {
    std::this_thread::sleep_for(step.next());
    const int before = std::exchange(queued, QueuedBytes(fd.get()));
    if (queued > before)
      return;  // another process has the port open and writes; then the close does not wait
  }
  if (queued == 0) return;
  // Time is up: what the device has not taken is dropped.
  ::tcflush(fd.get(), TCOFLUSH);
  if (QueuedBytes(fd.get()) > 0) CloseAtOnce(std::move(fd));
}

void ReleaseSocket(cppu::UniqueFd fd, bool peerTalks, const StillWaits& stillWaits) {
  if (QueuedBytes(fd.get()) > 0 && (peerTalks || InputWaits(fd.get()))) DrainSocket(fd.get(), stillWaits);
  // A forked child may hold a copy; the connection ends all the same.
  ::shutdown(fd.get(), SHUT_RDWR);
}

}  // namespace qvio
