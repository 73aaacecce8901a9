#include "io/release_descriptor.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <exception>
#include <memory>
#include <thread>
#include <utility>

#include "util/retired_threads.h"
#include "util/system_call.h"
#include "util/thread.h"

namespace qvio {
namespace {

using namespace std::chrono_literals;

static_assert(TIOCOUTQ == SIOCOUTQ, "one request asks terminals and sockets");

/// The rest between two looks at a queue, since no event reports that it is empty: short at first, as most
/// queues are empty soon.
class Step {
 public:
  [[nodiscard]] std::chrono::milliseconds next() {
    return std::exchange(length_, std::min<std::chrono::milliseconds>(2 * length_, 20ms));
  }

 private:
  std::chrono::milliseconds length_ = 1ms;
};

void CloseOnItsOwnThread(cppu::UniqueFd fd) {
  try {
    const auto shared = std::make_shared<cppu::UniqueFd>(std::move(fd));
    cppu::Retired().add(cppu::Thread("qvio-close", [shared] { shared->reset(); }));
  } catch (const std::exception&) {
    // No thread or memory: the descriptor is closed here, at the cost of the driver's time.
  }
}

/// Drops what the peer has sent; MSG_TRUNC keeps TCP from copying it. False when nothing more will come.
bool DiscardInput(int fd) {
  constexpr std::size_t kMuch = std::size_t{1} << 20;
  const auto got = cppu::Uninterrupted([&] { return ::recv(fd, nullptr, kMuch, MSG_TRUNC | MSG_DONTWAIT); });
  return got > 0 || (got < 0 && errno == EAGAIN);
}

/// Ends the sending side and waits until the peer has all of it.
void DrainSocket(int fd, const StillWaits& stillWaits) {
  Step step;
  const auto mayWait = [&] {
    const int queued = QueuedBytes(fd);
    return queued > 0 && stillWaits(queued);
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
  for (; queued > 0 && stillWaits(queued); queued = QueuedBytes(fd.get()))
    std::this_thread::sleep_for(step.next());
  if (queued == 0) return;
  ::tcflush(fd.get(), TCOFLUSH);
  if (QueuedBytes(fd.get()) > 0) CloseOnItsOwnThread(std::move(fd));
}

void ReleaseSocket(cppu::UniqueFd fd, bool peerTalks, const StillWaits& stillWaits) {
  if (peerTalks || InputWaits(fd.get())) DrainSocket(fd.get(), stillWaits);
  ::shutdown(fd.get(), SHUT_RDWR);
}

}  // namespace qvio
