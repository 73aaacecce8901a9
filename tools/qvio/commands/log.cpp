#include <poll.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "device/device_log.h"
#include "device/polled_channel.h"
#include "terminal/log_file.h"
#include "terminal/polled_output.h"
#include "terminal/signals.h"
#include "terminal/text.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

constexpr std::chrono::milliseconds kLastBytes{500};

struct LogOptions {
  std::vector<std::string> names;  ///< the devices, as given
  ChannelOptions link;             ///< the same for all
  std::string folder;              ///< of the files; empty: standard output
  Rotation rotation;
  uint64_t periodSeconds = 0;  ///< of rotation
  bool raw = false;
  std::string request;
  double everySeconds = 1;
  uint32_t seconds = 0;  ///< overall limit; 0: none

  [[nodiscard]] ChannelOptions device(const std::string& name) const {
    auto device = link;
    device.locator = name;
    device.complete();
    return device;
  }
};

/// "network:10.0.0.7:5000" as "network_10.0.0.7_5000.log".
std::string FileName(std::string device) {
  const auto isPlain = [](unsigned char letter) {
    return std::isalnum(letter) != 0 || letter == '.' || letter == '-';
  };
  std::ranges::replace_if(
      device, [&](char letter) { return !isPlain(static_cast<unsigned char>(letter)); }, '_');
  return device.substr(std::min(device.find_first_not_of("_."), device.size())) + ".log";
}

/// Wrong usage is found before anything is opened.
void RequireSound(LogOptions& options) {
  options.rotation.period = std::chrono::seconds(options.periodSeconds);
  if (options.raw && options.folder.empty() && options.names.size() > 1)
    throw CommandFailure("--raw with several devices needs --folder", WrongUsage);
  std::set<std::string> files;
  for (const auto& name : options.names) {
    static_cast<void>(options.device(name));
    if (!files.insert(FileName(name)).second)
      throw CommandFailure("two devices would write " + FileName(name), WrongUsage);
  }
}

/// One device, and where what it sends is written.
class Capture {
 public:
  Capture(const std::string& name, const LogOptions& options, PolledOutput& output)
      : name_(OneLine(name)),
        device_(options.device(name)),
        raw_(options.raw),
        request_(options.request.empty() ? "" : FromEscaped(options.request) + device_.eol),
        every_(
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.everySeconds))),
        output_(output),
        channel_(device_),
        log_([this](std::string_view lines) { write(lines); }, device_.form(),
             options.folder.empty() && options.names.size() > 1 ? name : "") {
    if (!options.folder.empty())
      file_.emplace(std::filesystem::path(options.folder) / FileName(name), options.rotation);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  [[nodiscard]] pollfd entry() const { return {isLost_ ? -1 : channel_.readyFd(), POLLIN, 0}; }
  [[nodiscard]] bool isLost() const { return isLost_; }

  /// When turn() has something to do although nothing has come.
  [[nodiscard]] cppu::Deadline due() const {
    return cppu::Sooner(log_.due(), request_.empty() || isLost_ ? cppu::Deadline{} : next_);
  }

  void turn() {
    if (!isLost_ && !request_.empty() && Clock::now() >= next_) ask();
    if (!isLost_ && channel_.wait(Clock::now()))
      for (const auto& arrival : channel_.take()) handle(arrival);
    log_.addDue();
  }

  void finish() { log_.addRest(); }

 private:
  /// A device that is away is not asked later for what is wanted now.
  void ask() {
    next_ = std::max(next_ + every_, Clock::now());
    if (!channel_.isOpen()) return;
    if (!channel_.send(request_)) return report("the device takes no bytes; a request is not sent");
    if (!raw_) log_.addSent(request_);
  }

  void handle(const Arrival& arrival) {
    if (arrival.kind == Arrival::Kind::Bytes)
      return raw_ ? write(arrival.text) : log_.addReceived(arrival.text);
    if (arrival.kind == Arrival::Kind::Sent) return;
    isLost_ = isLost_ || arrival.kind == Arrival::Kind::Lost;
    report(arrival.text);
  }

  void report(const std::string& text) {
    std::fprintf(stderr, "qvio: %s: %s\n", name_.c_str(), OneLine(text).c_str());
    if (!raw_) log_.addNotice(text);
  }

  void write(std::string_view bytes) { file_ ? file_->append(bytes) : output_.add(bytes); }

  const std::string name_;
  const ChannelOptions device_;
  const bool raw_;
  const std::string request_;  ///< the bytes; empty: the device is not asked
  const Clock::duration every_;
  Clock::time_point next_ = Clock::now();  ///< when it is to be asked
  PolledOutput& output_;
  PolledChannel channel_;
  std::optional<LogFile> file_;
  DeviceLog log_;
  bool isLost_ = false;
};

/// All devices until a signal, the limit, or the loss of the last.
class Captures {
 public:
  explicit Captures(const LogOptions& options) {
    if (options.seconds > 0) limit_ = Clock::now() + std::chrono::seconds(options.seconds);
    for (const auto& name : options.names) captures_.emplace_back(name, options, output_);
  }

  int run() {
    std::optional<ExitStatus> status;
    while (!status) status = turn();
    for (auto& capture : captures_) capture.finish();
    output_.writeUntil(Clock::now() + kLastBytes);
    return *status;
  }

 private:
  std::optional<ExitStatus> turn() {
    const bool hasRoom = output_.hasRoom();  // else receiving waits
    std::vector<pollfd> entries{{signals_.fd(), POLLIN, 0}, output_.entry()};
    auto due = limit_;
    if (hasRoom) {
      for (const auto& capture : captures_) {
        entries.push_back(capture.entry());
        due = cppu::Sooner(due, capture.due());
      }
    }
    cppu::PollUntil(entries, due);
    if (signals_.take() != 0 || cppu::HasPassed(limit_) || PolledOutput::isDead(entries[1])) return Done;
    if (hasRoom)
      for (auto& capture : captures_) capture.turn();
    output_.write();
    return std::ranges::all_of(captures_, &Capture::isLost) ? std::optional(Refused) : std::nullopt;
  }

  const SignalDescriptor signals_{SIGINT, SIGTERM, SIGHUP};  // before any thread starts
  PolledOutput output_;
  cppu::Deadline limit_;
  std::list<Capture> captures_;
};

int Log(const LogOptions& options) { return Captures(options).run(); }

void AddRotation(CLI::App& command, LogOptions& options) {
  auto* const folder =
      command.add_option("-f,--folder", options.folder, "Write a file for each device into this folder")
          ->check(CLI::ExistingDirectory);
  command.add_option("--max-size", options.rotation.bytes, "Begin a new file before this size, such as 10MB")
      ->transform(CLI::AsSizeValue(true))
      ->needs(folder);
  const std::map<std::string, uint64_t> units{{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}};
  command
      .add_option("--max-age", options.periodSeconds,
                  "Begin a new file in each period of local time, such as 1h or 1d")
      ->transform(CLI::AsNumberWithUnit(units))
      ->needs(folder);
  command.add_option("--keep", options.rotation.kept, "Keep so many old files of each device; default all")
      ->needs(folder);
}

}  // namespace

void AddLogCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("log", "Write down what devices send, with times, until Ctrl-C");
  auto& options = SetAction(*command, run, Log);
  command->add_option("locators", options.names, std::string(kLocatorHelp) + "; several at once")->required();
  options.link.addLinkTo(*command);
  options.link.addReconnectTo(*command);
  AddRotation(*command, options);
  command->add_flag("--raw", options.raw, "Write the bytes as they are, without times");
  command->add_option("--request", options.request,
                      R"(Send this again and again, such as a question for a value; escapes as for "send")");
  command->add_option("--every", options.everySeconds, "Seconds between two requests")
      ->check(CLI::Range(0.001, 1e6))
      ->capture_default_str();
  command->add_option("--for", options.seconds, "End after this many seconds");
  command->parse_complete_callback([&options] { RequireSound(options); });
  command->footer(
      "Options hold for all devices; give devices with options of their own a name in qvio.toml. A line has "
      "the\n"
      "local time of its first byte, the device if there are several on standard output, < received, > sent "
      "or\n"
      "! notice, and the text; with --hex offset, bytes and characters. A file is DEVICE.log; an old one has "
      "the\n"
      "time of its end in its name, in UTC. Each line is written at once. A file that cannot be written "
      "ends\n"
      "the command.\n"
      "Exit status: 0 after Ctrl-C or --for, 1 when all devices are gone.\n"
      "Example:\n  qvio log stage sensor --reconnect --folder /var/log/cell --max-age 1d --keep 30\n"
      "  qvio log /dev/ttyUSB0 -b 115200 --request \"POS?\" --every 0.5");
}

}  // namespace qvio_tool
