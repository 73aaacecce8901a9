// qvio-sim: devices that need no hardware.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "sim/controller.h"
#include "sim/event_loop.h"
#include "sim/network_device.h"
#include "sim/serial_device.h"

namespace {

constexpr const char* kProtocol =
    "The device answers single lines (ending in CR, LF or both) with one line each:\n"
    "  *IDN?    its identity\n"
    "  MOV <x>  moves to position x, -1000 to 1000\n"
    "  POS?     the position now\n"
    "  MOV?     1 while it moves, else 0\n"
    "  STOP     stays where it is\n"
    "  anything else: ERR <number> <text>\n";

struct Settings {
  qvsim::ControllerSettings controller;
  bool echo = false;
  std::string link;
  std::string address = "127.0.0.1";
  uint16_t port = 0;
};

/// Blocks the signals that end the program, before any thread starts.
class EndSignals {
 public:
  EndSignals() {
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // a reader that is gone is a failure to tell
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals_, signal);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  }
  void wait() const {
    int signal = 0;
    sigwait(&signals_, &signal);
  }

 private:
  sigset_t signals_{};
};

/// A symbolic link that is there while the device is.
class DeviceLink {
 public:
  DeviceLink(std::string target, std::string link) : target_(std::move(target)), link_(std::move(link)) {
    if (link_.empty()) return;
    std::error_code error;
    std::filesystem::create_symlink(target_, link_, error);
    if (error) throw std::system_error(error, "cannot link " + link_);
  }
  DeviceLink(const DeviceLink&) = delete;
  DeviceLink& operator=(const DeviceLink&) = delete;
  ~DeviceLink() {
    std::error_code ignored;
    // Somebody else's by now if it leads elsewhere.
    if (std::filesystem::read_symlink(link_, ignored) == target_) std::filesystem::remove(link_, ignored);
  }

 private:
  std::string target_;
  std::string link_;
};

/// Whoever started the program waits for this line, hence the flush.
void Announce(const std::string& place) {
  std::cout << place << std::endl;
  if (!std::cout) throw std::runtime_error("cannot write to standard output");
}

/// Part of the answer to *IDN?, whose fields are split at commas.
std::string CheckSerialNumber(const std::string& text) {
  const auto isAllowed = [](char c) { return c > ' ' && c <= '~' && c != ','; };
  if (!text.empty() && std::all_of(text.begin(), text.end(), isAllowed)) return {};
  return "must be printable, without blanks and commas";
}

std::string UsageFailure(const CLI::App* /*app*/, const CLI::Error& error) {
  return std::string("qvio-sim: ") + error.what() + "\nTry \"qvio-sim --help\".\n";
}

qvsim::MakeResponder ResponderOf(const Settings& settings) {
  return settings.echo ? qvsim::MakeResponder(qvsim::MakeEcho) : qvsim::ServeController(settings.controller);
}

void ServeSerial(const Settings& settings, const EndSignals& end) {
  qvsim::EventLoop loop;
  const qvsim::SerialDevice device(loop, ResponderOf(settings));
  const DeviceLink link(device.path(), settings.link);
  Announce(device.path());
  end.wait();
}

void ServeNetwork(const Settings& settings, const EndSignals& end) {
  qvsim::EventLoop loop;
  const qvsim::NetworkDevice device(loop, settings.address, settings.port, ResponderOf(settings));
  Announce(settings.address + ':' + std::to_string(device.port()));
  end.wait();
}

void AddDeviceOptions(CLI::App& command, Settings& settings) {
  command.add_flag("--echo", settings.echo, "Send every byte back instead of answering commands");
  command.add_option("--serial", settings.controller.serialNumber, "Serial number")
      ->check(CheckSerialNumber)
      ->capture_default_str();
  command.add_option("--speed", settings.controller.speed, "Units a second of a move; 0: done at once")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
}

}  // namespace

int main(int argc, char** argv) try {
  Settings settings;
  CLI::App app("Simulated motion controllers, until interrupted", "qvio-sim");
  app.require_subcommand(1);
  app.failure_message(UsageFailure);
  app.footer(
      "Examples:\n  qvio-sim serial --echo\n  qvio-sim network --port 5000\n"
      "\"qvio-sim COMMAND --help\" tells more. Exit status: 0 ended by a signal, 1 failure, 2 wrong usage.");

  auto* const serial = app.add_subcommand("serial", "A device behind a pseudo terminal; prints its path");
  AddDeviceOptions(*serial, settings);
  serial->add_option("--link", settings.link, "Also make this symbolic link to it, removed at the end");
  serial->footer(std::string(kProtocol) +
                 "Example:\n  qvio-sim serial --link /tmp/stage &\n"
                 "  qvio send serial:/tmp/stage \"*IDN?\" -o \"baudrate 115200\"");

  auto* const network = app.add_subcommand("network", "A controller's TCP side; prints its address and port");
  AddDeviceOptions(*network, settings);
  network->add_option("--port", settings.port, "TCP port; 0: the system chooses")->required();
  network->add_option("--listen", settings.address, "Address of a local interface")
      ->check(CLI::ValidIPV4)
      ->capture_default_str();
  network->footer(std::string(kProtocol) +
                  "Example:\n  qvio-sim network --port 5000 &\n"
                  "  qvio send network:127.0.0.1:5000 \"POS?\"");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  const EndSignals end;
  serial->parsed() ? ServeSerial(settings, end) : ServeNetwork(settings, end);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "qvio-sim: %s\n", error.what());
  return 1;
}
