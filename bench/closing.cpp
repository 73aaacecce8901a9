// How long closing takes in every state that a channel can be in.

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "bench.h"
#include "quorvio/quorvio.h"
#include "sim/peer.h"
#include "tests/support/wait.h"

namespace qvbench {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;
using qvsim::Link;

/// Waits without a rest: what is measured takes microseconds.
template <class Condition>
void Await(Condition condition, const char* what) {
  const auto limit = Clock::now() + qvtest::kGenerous;
  while (!condition()) {
    Require(Clock::now() < limit, what);
    std::this_thread::yield();
  }
}

/// A channel that is opened, brought into a state, and closed in it. By the C functions: quorvio.hpp cannot
/// close without wait.
class Subject {
 public:
  /// On return the receive thread has handed out a first byte.
  Subject(Link link, qvsim::Workshop& workshop, const std::string& chip)
      : peer_(MakePeer(link, workshop, chip)) {
    const auto locator = peer_->locator();
    const auto options = peer_->options() + "\nhealth-check 50";
    const auto open = [&] {  // a chip that was plugged in again may be listed a little later
      return QV_IO_Open(&handle_, locator.c_str(), options.c_str(), this, onReceive, onError) == QV_IO_OK;
    };
    Await(open, locator.c_str());
    Require(QV_IO_Send(handle_, "x", 1) == QV_IO_OK, "the first byte");
    Await([&] { return received_ > 0; }, "the first byte back");
  }
  Subject(const Subject&) = delete;
  Subject& operator=(const Subject&) = delete;
  ~Subject() {
    if (sending_.valid()) Require(sending_.get() == QV_IO_ERROR_TRANSMIT_FAILED, "a blocked send");
  }

  void receive() {
    peer_->flood();
    Await([&] { return received_ > 1000; }, "a flood");
  }

  void lose(qvsim::Fault fault) {
    peer_->suffer(fault);
    Await([&] { return notices_ > 0; }, "a notice");
  }

  void blockSend() {
    peer_->stall(true);
    sending_ = std::async(std::launch::async, [this] {
      static const std::vector<char> moreThanFits(std::size_t{16} << 20U);
      return QV_IO_Send(handle_, moreThanFits.data(), moreThanFits.size());
    });
    Await([&] { return peer_->holdsUp(); }, "a peer that holds up a send");
  }

  Milliseconds close() { return timeOfClose(1); }

  Milliseconds closeWithoutWait() {
    const auto time = timeOfClose(0);
    Await([&] { return hasEnded(); }, "the end of the receive thread");  // it uses this object
    return time;
  }

  /// Until the thread that releases the device has ended.
  Milliseconds closeInCallback() {
    closesInCallback_ = true;
    Require(QV_IO_Send(handle_, "x", 1) == QV_IO_OK, "the byte that closes");
    Await([&] { return isClosed_ && hasEnded(); }, "the end of the receive thread");
    return Clock::now() - closeBegan_;
  }

 private:
  Milliseconds timeOfClose(uint32_t wait) {
    closeBegan_ = Clock::now();
    Require(QV_IO_Close(handle_, wait) == QV_IO_OK, "closing");
    return Clock::now() - closeBegan_;
  }

  [[nodiscard]] bool hasEnded() const { return ::syscall(SYS_tgkill, ::getpid(), thread_.load(), 0) != 0; }

  static void onReceive(void* self, const uint8_t* /*data*/, std::size_t length) {
    auto& subject = *static_cast<Subject*>(self);
    subject.thread_ = ::gettid();
    subject.received_ += length;
    if (!subject.closesInCallback_.exchange(false)) return;
    subject.timeOfClose(1);
    subject.isClosed_ = true;
  }
  static void onError(void* self, uint32_t /*code*/) { ++static_cast<Subject*>(self)->notices_; }

  const std::unique_ptr<qvsim::Peer> peer_;
  uint32_t handle_ = 0;
  std::future<uint32_t> sending_;
  std::atomic<std::size_t> received_ = 0;
  std::atomic<int> notices_ = 0;
  std::atomic<bool> closesInCallback_ = false;
  std::atomic<bool> isClosed_ = false;
  std::atomic<pid_t> thread_ = 0;  ///< the receive thread
  Clock::time_point closeBegan_;
};

/// How channels are brought into a state and closed in it, several at a time.
struct Row {
  std::string name;
  std::function<Milliseconds(Subject&)> close = &Subject::close;
  std::function<void(Subject&)> enter = [](Subject&) {};
  std::size_t together = 1;
};

std::vector<Row> RowsOf(Link link) {
  std::vector<Row> rows{{"idle"},
                        {"idle, without wait", &Subject::closeWithoutWait},
                        {"in its callback, until released", &Subject::closeInCallback},
                        {"receiving", &Subject::close, &Subject::receive},
                        {"send blocked, 60 at once", &Subject::close, &Subject::blockSend, 60}};
  for (const auto fault : FaultsOf(link))
    rows.push_back({"peer " + NameOf(fault), &Subject::close, [=](auto& subject) { subject.lose(fault); }});
  return rows;
}

void Measure(benchmark::State& state, Link link, const Row& row) {
  qvsim::Workshop workshop;
  std::vector<std::string> chips;
  for (std::size_t i = 0; i < row.together; ++i) chips.push_back("CLOSE-" + std::to_string(i));
  SetChips(workshop, chips);
  std::vector<double> times;
  for ([[maybe_unused]] auto _ : state) {
    std::deque<Subject> subjects;
    for (const auto& chip : chips) row.enter(subjects.emplace_back(link, workshop, chip));
    std::vector<std::future<Milliseconds>> closes;
    closes.reserve(subjects.size());
    // A single one on this thread: starting another costs more than the close.
    const auto policy = row.together == 1 ? std::launch::deferred : std::launch::async;
    for (auto& subject : subjects) closes.push_back(std::async(policy, [&] { return row.close(subject); }));
    for (auto& close : closes) times.push_back(close.get().count());
    state.SetIterationTime(times.back() / 1000);
  }
  std::ranges::sort(times);
  state.counters["median_ms"] = times.at(times.size() / 2);
  state.counters["99%_ms"] = times.at(times.size() * 99 / 100);
  state.counters["worst_ms"] = times.back();
}

[[maybe_unused]] const bool kRegistered = [] {
  constexpr int kCloses = 200;
  for (const auto link : qvsim::kLinks) {
    for (const auto& row : RowsOf(link))
      benchmark::RegisterBenchmark(("close, " + NameOf(link) + ", " + row.name).c_str(),
                                   [=](auto& state) { Measure(state, link, row); })
          ->UseManualTime()
          ->Unit(benchmark::kMillisecond)
          ->Iterations(row.together == 1 ? kCloses : 1);
  }
  return true;
}();

}  // namespace
}  // namespace qvbench
