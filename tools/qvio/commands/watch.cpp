#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <thread>
#include <utility>

#include "commands/commands.h"
#include "commands/live_table.h"
#include "device/event_settler.h"
#include "device/listing.h"
#include "terminal/polled_output.h"
#include "terminal/signals.h"
#include "terminal/text.h"
#include "terminal/time_text.h"
#include "terminal/waking_queue.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

struct WatchOptions {
  DiscoveryOptions discovery;
  uint32_t settleMs = 0;
  uint32_t rescanSeconds = 5;
  bool json = false;
  bool live = false;
};

/// The events of a watch in a queue for a poll loop, moved there by a thread of its own.
class EventQueue {
 public:
  explicit EventQueue(quorvio::DeviceWatch& watch) : watch_(watch), thread_([this] { run(); }) {}
  EventQueue(const EventQueue&) = delete;
  EventQueue& operator=(const EventQueue&) = delete;

  /// Closes the watch.
  ~EventQueue() {
    queue_.close();
    watch_.close();
    thread_.join();
  }

  [[nodiscard]] int readyFd() const { return queue_.readyFd(); }
  [[nodiscard]] std::vector<TimedEvent> take() { return queue_.take(); }

 private:
  static constexpr std::size_t kLimit = 1000;  // the watch keeps more, and reports if it had to drop some

  void run() {
    while (moveOne()) {
    }
  }

  /// False at the end of the watch.
  bool moveOne() try {
    auto event = watch_.next(quorvio::Duration::max());
    return !event || queue_.push({std::move(*event), std::chrono::steady_clock::now(),
                                  std::chrono::system_clock::now()});
  } catch (const quorvio::Error& error) {
    if (error.code() != quorvio::Errc::eventsLost) return false;
    std::fputs("qvio: standard output is too slow; events were lost\n", stderr);
    return true;
  }

  quorvio::DeviceWatch& watch_;
  WakingQueue<TimedEvent> queue_{kLimit};
  std::thread thread_;
};

std::string Line(const DeviceReport& report) {
  const auto& device = report.device;
  auto change = NameOf(report.change);
  change.resize(NameOf(Change::Unavailable).size(), ' ');
  std::string line = LocalTime(report.time) + "  " + change;
  const auto address = device.host + ':' + std::to_string(device.port);
  for (const auto& field :
       {device.locator, device.serialNumber, address, IfaceAddress(device), device.info}) {
    line += "  " + OneLine(field);
  }
  return line + '\n';
}

std::string JsonLine(const DeviceReport& report) {
  nlohmann::ordered_json object{{"time", Rfc3339Time(report.time)}, {"event", NameOf(report.change)}};
  object.update(ToJson(report.device));
  return JsonText(object, -1);
}

/// What is printed for reports, in one of three forms.
class Reports {
 public:
  explicit Reports(const WatchOptions& options) : json_(options.json), live_(options.live) {}

  void add(const std::vector<DeviceReport>& reports, PolledOutput& output) {
    for (const auto& report : reports) {
      live_ ? table_.add(report) : output.add(json_ ? JsonLine(report) : Line(report));
    }
    if (!reports.empty()) draw(output);
  }

  /// For a terminal that may have another size now.
  void draw(PolledOutput& output) const {
    if (live_) output.add(table_.drawing());
  }

 private:
  const bool json_;
  const bool live_;
  LiveTable table_;
};

int Watch(const WatchOptions& options) {
  if (options.live && ::isatty(STDOUT_FILENO) == 0)
    throw CommandFailure("--live needs a terminal", WrongUsage);
  options.discovery.startTrace();
  const auto addresses = options.discovery.addresses();
  const SignalDescriptor signals{SIGINT, SIGTERM, SIGWINCH};  // before any thread starts
  DeviceSearch search(addresses);
  EventQueue events(search.events());
  const RepeatedSearch repeated(search, std::chrono::seconds(options.rescanSeconds));
  EventSettler settler{std::chrono::milliseconds(options.settleMs)};
  PolledOutput output;
  Reports reports(options);
  reports.draw(output);
  for (;;) {
    const bool hasRoom = output.hasRoom();  // else events wait in the watch, which bounds them
    const auto wanted = static_cast<short>(hasRoom ? POLLIN : 0);
    std::array<pollfd, 3> entries{{{signals.fd(), POLLIN, 0}, {events.readyFd(), wanted, 0}, output.entry()}};
    cppu::PollUntil(entries, hasRoom ? settler.nextDue() : cppu::Deadline{});
    if (PolledOutput::isDead(entries[2])) return Done;
    if (hasRoom) {
      for (const auto& event : events.take()) settler.add(event);
      reports.add(settler.take(std::chrono::steady_clock::now()), output);
    }
    const int signal = signals.take();
    if (signal != 0 && signal != SIGWINCH) return Done;
    if (signal == SIGWINCH && hasRoom) reports.draw(output);
    output.write();
  }
}

}  // namespace

void AddWatchCommand(CLI::App& app, Run& run) {
  auto* const command =
      app.add_subcommand("watch", "Watch network devices appear and disappear, until Ctrl-C");
  auto& options = SetAction(*command, run, Watch);
  options.discovery.addTo(*command);
  command
      ->add_option(
          "--settle", options.settleMs,
          "Milliseconds to hold a loss back; neither is reported if the device is found again in time")
      ->capture_default_str();
  command
      ->add_option("--rescan", options.rescanSeconds,
                   "Seconds between searches, which notice devices that vanish without a goodbye; 0: one "
                   "search at the start")
      ->capture_default_str();
  auto* const json = command->add_flag("--json", options.json, "Print a JSON object a line");
  command->add_flag("--live", options.live, "Show a table of all devices and keep it up to date")
      ->excludes(json);
  command->footer(
      "Each line has the local time, found, unavailable (in use by another) or lost, and the device: "
      "locator,\n"
      "serial number, address and port, interface, info. A lost answer to a search looks like a loss; "
      "--settle\n"
      "with more than the time between two searches hides that.\n"
      "Example:\n  qvio watch --iface 192.168.0.2 --rescan 2 --settle 5000");
}

}  // namespace qvio_tool
