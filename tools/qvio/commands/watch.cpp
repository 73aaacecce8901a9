#include <array>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <thread>
#include <utility>

#include "commands/commands.h"
#include "device/event_settler.h"
#include "device/listing.h"
#include "terminal/polled_output.h"
#include "terminal/signals.h"
#include "terminal/text.h"
#include "terminal/waking_queue.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

struct WatchOptions {
  DiscoveryOptions discovery;
  uint32_t settleMs = 0;
  uint32_t rescanSeconds = 5;
  bool json = false;
};

/// @param format  as for strftime; %3 is replaced by the milliseconds
std::string LocalTime(std::chrono::system_clock::time_point time, std::string format) {
  const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  const auto milliseconds = std::to_string(1000 + sinceEpoch.count() % 1000).substr(1);
  format.replace(format.find("%3"), 2, milliseconds);
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  std::ostringstream text;
  text << std::put_time(&local, format.c_str());
  return text.str();
}

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

std::string NameOf(Change change) {
  constexpr std::array<const char*, 3> kNames{"found", "unavailable", "lost"};
  return kNames.at(static_cast<std::size_t>(change));
}

std::string Line(const DeviceReport& report) {
  const auto& device = report.device;
  auto change = NameOf(report.change);
  change.resize(NameOf(Change::Unavailable).size(), ' ');
  std::string line = LocalTime(report.time, "%F %T.%3") + "  " + change;
  const auto address = device.host + ':' + std::to_string(device.port);
  for (const auto& field :
       {device.locator, device.serialNumber, address, IfaceAddress(device), device.info}) {
    line += "  " + OneLine(field);
  }
  return line + '\n';
}

std::string JsonLine(const DeviceReport& report) {
  auto time = LocalTime(report.time, "%FT%T.%3%z");
  time.insert(time.size() - 2, ":");  // "+0100" of strftime is "+01:00" in RFC 3339
  nlohmann::ordered_json object{{"time", time}, {"event", NameOf(report.change)}};
  object.update(ToJson(report.device));
  return JsonText(object, -1);
}

int Watch(const WatchOptions& options) {
  options.discovery.startTrace();
  const auto addresses = options.discovery.addresses();
  const SignalDescriptor signals{SIGINT, SIGTERM};  // before any thread starts
  DeviceSearch search(addresses);
  EventQueue events(search.events());
  const RepeatedSearch repeated(search, std::chrono::seconds(options.rescanSeconds));
  EventSettler settler{std::chrono::milliseconds(options.settleMs)};
  PolledOutput output;
  for (;;) {
    const bool hasRoom = output.hasRoom();  // else events wait in the watch, which bounds them
    const auto wanted = static_cast<short>(hasRoom ? POLLIN : 0);
    std::array<pollfd, 3> entries{{{signals.fd(), POLLIN, 0}, {events.readyFd(), wanted, 0}, output.entry()}};
    cppu::PollUntil(entries, hasRoom ? settler.nextDue() : cppu::Deadline{});
    if (PolledOutput::isDead(entries[2])) return Done;
    if (hasRoom) {
      for (const auto& event : events.take()) settler.add(event);
      for (const auto& report : settler.take(std::chrono::steady_clock::now())) {
        output.add(options.json ? JsonLine(report) : Line(report));
      }
    }
    output.write();
    if (signals.take() != 0) return Done;
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
  command->add_flag("--json", options.json, "Print a JSON object a line");
  command->footer(
      "Each line has the local time, found, unavailable (in use by another) or lost, and the device: "
      "locator,\n"
      "serial number, address and port, interface, info. A lost answer to a search looks like a loss; "
      "--settle\n"
      "with more than the time between two searches hides that.\n"
      "Example:\n  qvio watch --iface 192.168.0.2 --rescan 2 --settle 5000");
}

}  // namespace qvio_tool
