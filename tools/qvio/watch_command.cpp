#include <array>
#include <csignal>
#include <ctime>
#include <iomanip>
#include <memory>
#include <sstream>

#include "commands.h"
#include "device_events.h"
#include "device_search.h"
#include "discovery_options.h"
#include "event_settler.h"
#include "json_text.h"
#include "line_output.h"
#include "repeated_search.h"
#include "signals.h"
#include "text_codec.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

struct WatchOptions {
  DiscoveryOptions discovery;
  uint32_t settleMs = 0;
  uint32_t rescanSeconds = 5;
  bool json = false;
};

/// @param format  as for strftime, where %3 stands for the milliseconds
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
  for (const std::string_view field :
       {std::string_view(device.locator), std::string_view(device.serialNumber), std::string_view(address),
        IfaceAddress(device), std::string_view(device.info)}) {
    line += "  " + OneLine(field);
  }
  return line + '\n';
}

std::string JsonLine(const DeviceReport& report) {
  nlohmann::ordered_json object{{"time", LocalTime(report.time, "%FT%T.%3%z")},
                                {"event", NameOf(report.change)}};
  object.update(ToJson(report.device));
  return JsonText(object, -1);
}

int Watch(const WatchOptions& options) {
  options.discovery.startTrace();
  const auto addresses = options.discovery.addresses();
  const SignalDescriptor signals{SIGINT, SIGTERM};  // before any thread starts
  DeviceEvents events;                              // before anything is found
  const DeviceSearch search(addresses);
  const RepeatedSearch repeated(search, std::chrono::seconds(options.rescanSeconds));
  EventSettler settler{std::chrono::milliseconds(options.settleMs)};
  LineOutput output;
  for (;;) {
    std::array<pollfd, 3> entries{{{signals.fd(), POLLIN, 0}, {events.readyFd(), POLLIN, 0}, output.entry()}};
    cppu::PollUntil(entries, settler.nextDue());
    if (LineOutput::isDead(entries[2])) return Done;
    for (const auto& event : events.take()) settler.add(event);
    for (const auto& report : settler.take(std::chrono::steady_clock::now())) {
      output.add(options.json ? JsonLine(report) : Line(report));
    }
    output.write();
    if (signals.take() != 0) return Done;
  }
}

}  // namespace

void AddWatchCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<WatchOptions>();
  auto* const command = app.add_subcommand("watch", "Tell of network devices that come and go, until Ctrl-C");
  options->discovery.addTo(*command);
  command
      ->add_option("--settle", options->settleMs,
                   "Milliseconds to hold a loss back; a device that is found again meanwhile is not told")
      ->capture_default_str();
  command
      ->add_option("--rescan", options->rescanSeconds,
                   "Seconds between searches, which notice devices that vanished silently; 0: only at the "
                   "start")
      ->capture_default_str();
  command->add_flag("--json", options->json, "Print a JSON object a line");
  command->footer(
      "A line tells the local time, found, unavailable (in use by another) or lost, and the device: locator, "
      "serial\nnumber, address and port, interface, info. A search whose answer got lost looks like a loss; "
      "--settle with more\nthan the time between two searches keeps that quiet.\n"
      "Example:\n  qvio watch --iface 192.168.0.2 --rescan 2 --settle 5000");
  command->callback([options, &run] { run = [options] { return Watch(*options); }; });
}

}  // namespace qvio_tool
