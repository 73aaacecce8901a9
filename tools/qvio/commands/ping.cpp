#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "commands/commands.h"
#include "device/channel_options.h"
#include "device/failure_text.h"
#include "device/serial_port.h"
#include "quorvio/quorvio.hpp"
#include "terminal/signals.h"
#include "terminal/text.h"
#include "terminal/waking_queue.h"
#include "util/signals_blocked.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct PingOptions {
  ChannelOptions channel;
  uint32_t count = 10;
  std::string request = "*IDN?";
  std::string until = "\\n";
  uint32_t waitMs = 1000;
  double everySeconds = 0.2;
};

/// One request and its answer.
struct RoundTrip {
  Clock::duration time{0};
  std::size_t bytes = 0;  ///< of the answer
  std::string failure;    ///< empty: answered
  bool isLast = false;    ///< the link is lost
};

/// Asks on a thread of its own, since a send to a device that takes no bytes lasts until the channel is
/// closed.
class Asker {
 public:
  explicit Asker(const PingOptions& options)
      : request_(FromEscaped(options.request) + options.channel.eol),
        until_(FromEscaped(options.until)),
        wait_(options.waitMs),
        lock_(options.channel),
        channel_(open(options.channel)) {
    lock_.reportSurprises(options.channel);
    const cppu::AllSignalsBlocked inherited;
    thread_ = std::thread([this] { run(); });
  }
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;
  ~Asker() {
    wanted_.close();
    channel_.close();
    thread_.join();
  }

  /// Begins a round trip, whose result comes within a little more than the time to wait, unless sending
  /// blocks.
  void ask() { static_cast<void>(wanted_.tryPush(true)); }

  [[nodiscard]] int readyFd() const { return done_.readyFd(); }
  [[nodiscard]] std::vector<RoundTrip> take() { return done_.take(); }

 private:
  static quorvio::Channel open(const ChannelOptions& options) try {
    return quorvio::Channel(options.locator, quorvio::Options::fromLines(options.text()));
  } catch (const quorvio::Error& error) {
    throw OpenFailure(static_cast<uint32_t>(error.code().value()), options);
  }

  void run() {
    while (wanted_.wait({}) && !wanted_.isClosed())
      for ([[maybe_unused]] const bool one : wanted_.take()) done_.push(roundTrip());
  }

  RoundTrip roundTrip() const try {
    const auto begin = Clock::now();
    const auto answer = channel_.query(request_, until_, wait_);
    return {Clock::now() - begin, answer.size() + until_.size(), {}, false};
  } catch (const quorvio::Error& error) {
    const bool isLate = error.code() == quorvio::Errc::timedOut;
    return {{}, 0, isLate ? "no answer in time" : error.code().message(), !isLate};
  }

  const std::string request_;
  const std::string until_;
  const milliseconds wait_;
  const SerialPortLock lock_;
  quorvio::Channel channel_;
  WakingQueue<bool> wanted_{1};
  WakingQueue<RoundTrip> done_{1};
  std::thread thread_;
};

double Milliseconds(Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); }

/// All round trips of one run.
class Statistics {
 public:
  void add(const RoundTrip& trip) {
    ++asked_;
    if (!trip.failure.empty()) {
      std::printf("%u: %s\n", asked_, trip.failure.c_str());
    } else {
      times_.push_back(Milliseconds(trip.time));
      std::printf("%u: %zu bytes in %.3f ms\n", asked_, trip.bytes, times_.back());
    }
    std::fflush(stdout);
  }

  /// Prints the summary.
  ExitStatus finish() {
    const auto answered = static_cast<unsigned>(times_.size());
    std::printf("%u asked, %u answered, %u lost\n", asked_, answered, asked_ - answered);
    if (times_.empty()) return Refused;
    std::ranges::sort(times_);
    std::printf("min %.3f  median %.3f  99 %% %.3f  max %.3f ms\n", times_.front(), ranked(0.5), ranked(0.99),
                times_.back());
    return Done;
  }

  [[nodiscard]] unsigned asked() const { return asked_; }

 private:
  /// The time that this share of all round trips does not exceed.
  [[nodiscard]] double ranked(double share) const {
    const auto rank = std::ceil(share * static_cast<double>(times_.size()));
    return times_.at(static_cast<std::size_t>(rank) - 1);
  }

  unsigned asked_ = 0;
  std::vector<double> times_;  ///< milliseconds
};

/// Until the count is reached, the link is lost, or a signal comes.
class Pings {
 public:
  explicit Pings(const PingOptions& options)
      : every_(
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.everySeconds))),
        limit_(milliseconds(options.waitMs) + kForSending),
        count_(options.count),
        asker_(options) {}

  int run() {
    while (!ended_) turn();
    return statistics_.finish();
  }

 private:
  static constexpr milliseconds kForSending{100};

  void turn() {
    if (!isAsking_ && Clock::now() >= next_) ask();
    std::array<pollfd, 2> entries{{{signals_.fd(), POLLIN, 0}, {asker_.readyFd(), POLLIN, 0}}};
    const bool isDue = cppu::PollUntil(entries, isAsking_ ? askedAt_ + limit_ : next_) == 0;
    if (signals_.take() != 0) ended_ = true;
    for (const auto& trip : asker_.take()) add(trip);
    if (isDue && isAsking_) add({{}, 0, "the device takes no bytes", true});
  }

  void ask() {
    asker_.ask();
    isAsking_ = true;
    askedAt_ = Clock::now();
    next_ = std::max(next_ + every_, askedAt_);
  }

  void add(const RoundTrip& trip) {
    isAsking_ = false;
    statistics_.add(trip);
    ended_ = ended_ || trip.isLast || statistics_.asked() == count_;
  }

  const Clock::duration every_;
  const Clock::duration limit_;  ///< beyond it sending is blocked
  const uint32_t count_;
  const SignalDescriptor signals_{SIGINT, SIGTERM};  // before the thread starts
  Asker asker_;
  Statistics statistics_;
  Clock::time_point next_ = Clock::now();
  Clock::time_point askedAt_;
  bool isAsking_ = false;
  bool ended_ = false;
};

int Ping(const PingOptions& options) { return Pings(options).run(); }

}  // namespace

void AddPingCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("ping", "Measure how long a device takes to answer");
  auto& options = SetAction(*command, run, Ping);
  options.channel.addTo(*command);
  command->add_option("-c,--count", options.count, "How often to ask")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  command->add_option("--request", options.request, R"(What to ask; escapes as for "send")")
      ->capture_default_str();
  command->add_option("--until", options.until, "The end of an answer")->capture_default_str();
  command->add_option("-w,--wait", options.waitMs, "Milliseconds to wait for an answer")
      ->capture_default_str();
  command->add_option("--every", options.everySeconds, "Seconds between two requests")
      ->check(CLI::Range(0.0, 1e6))
      ->capture_default_str();
  command->footer(
      "The time runs from before the request is sent to the end of its answer.\n"
      "Exit status: 0 when at least one request was answered, else 1.\n"
      "Example:\n  qvio ping network:192.168.0.10:5000 -c 100 --request \"POS?\"");
}

}  // namespace qvio_tool
