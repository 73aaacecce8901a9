#include "subject.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

#include "tests/support/wait.h"

namespace qvsoak {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMoreThanFits = std::size_t{16} << 20U;

void Require(bool condition, const std::string& what) {
  if (!condition) throw std::runtime_error(what);
}

/// Waits without a rest: what is measured takes microseconds.
template <class Condition>
void Await(Condition condition, const char* what) {
  const auto limit = Clock::now() + qvtest::kGenerous;
  while (!condition()) {
    Require(Clock::now() < limit, std::string("never: ") + what);
    ::sched_yield();
  }
}

bool HasEnded(int thread) { return ::syscall(SYS_tgkill, ::getpid(), thread, 0) != 0; }

}  // namespace

void Subject::open() {
  received_ = 0;
  notices_ = 0;
  const auto options = std::string(peer_->options()) + "\nhealth-check 50";
  uint32_t result = QV_IO_OK;
  const bool opened = qvtest::Eventually([&] {  // a chip that was plugged in again is listed a little later
    result = QV_IO_Open(&handle_, peer_->locator().c_str(), options.c_str(), this, onReceive, onError);
    return result == QV_IO_OK;
  });
  Require(opened, peer_->locator() + " cannot be opened: " + std::to_string(result));
  Require(QV_IO_Send(handle_, "x", 1) == QV_IO_OK, "sending the first byte");
  Await([&] { return received_ > 0; }, "the first byte");
}

void Subject::receive() {
  peer_->flood();
  isSpoiled_ = true;
  Await([&] { return received_ > 1000; }, "a flood");
}

void Subject::sendUntilBlocked() {
  peer_->stall(true);
  sender_ = std::thread([this] {
    static const std::vector<char> bytes(kMoreThanFits);  // one for all: making it takes its time
    sendResult_ = QV_IO_Send(handle_, bytes.data(), bytes.size());
  });
  Await([&] { return peer_->holdsUp(); }, "a peer that holds up a send");
}

void Subject::lose(Fault fault) {
  peer_->suffer(fault);
  isSpoiled_ = fault == Fault::Vanishes;
  Await([&] { return notices_ > 0; }, "a notice");
}

Duration Subject::closeWithWait() const {
  const auto began = Clock::now();
  const auto result = QV_IO_Close(handle_, 1);
  const auto time = Clock::now() - began;
  Require(result == QV_IO_OK, "closing");
  return time;
}

Duration Subject::closeInCallback() {
  receiveThread_ = 0;
  closesInCallback_ = true;
  Require(QV_IO_Send(handle_, "x", 1) == QV_IO_OK, "sending the byte that closes");
  Await([&] { return receiveThread_ != 0 && HasEnded(receiveThread_); }, "the end of the receive thread");
  return Clock::now() - closeBegan_;
}

void Subject::tidyUp() {
  if (sender_.joinable()) {
    sender_.join();
    Require(sendResult_ == QV_IO_ERROR_TRANSMIT_FAILED, "the send was not blocked");
    peer_->stall(false);
    isSpoiled_ = true;
  }
  if (!isSpoiled_) return;
  peer_->suffer(Fault::Vanishes);
  peer_->comeBack();
  isSpoiled_ = false;
}

void Subject::onReceive(void* self, const uint8_t* /*data*/, std::size_t length) {
  auto& subject = *static_cast<Subject*>(self);
  subject.received_ += length;
  if (!subject.closesInCallback_.exchange(false)) return;
  subject.closeBegan_ = Clock::now();
  QV_IO_Close(subject.handle_, 1);
  subject.receiveThread_ = ::gettid();  // last: whoever sees it may destroy the subject
}

void Subject::onError(void* self, uint32_t /*code*/) { ++static_cast<Subject*>(self)->notices_; }

}  // namespace qvsoak
