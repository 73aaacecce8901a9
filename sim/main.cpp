// qvio-sim: devices that need no hardware.

#include <sys/resource.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "sim/control_lines.h"
#include "sim/controller.h"
#include "sim/controller_group.h"
#include "sim/descriptor_limit.h"
#include "sim/event_loop.h"
#include "sim/main_loop.h"
#include "sim/network_device.h"
#include "sim/serial_device.h"
#include "sim/usb_program.h"

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
  // Discovery:
  std::optional<std::string> iface;
  unsigned count = 1;
  qvsim::DiscoverySide::Identity identity;
  unsigned spreadMs = 20;
  uint32_t seed = 1;
  unsigned delayMs = 0;
  std::optional<uint16_t> refusal;
  qvsim::DiscoveryFaults faults;
  // USB:
  std::vector<std::string> program;
  std::string chips;
};

/// A symbolic link that exists as long as the device.
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
    // Another program's by now if it leads elsewhere.
    if (std::filesystem::read_symlink(link_, ignored) == target_) std::filesystem::remove(link_, ignored);
  }

 private:
  std::string target_;
  std::string link_;
};

/// Whoever started the program waits for these lines, hence the flush.
void Announce(const std::string& lines) {
  std::cout << lines << std::endl;
  if (!std::cout) throw std::runtime_error("cannot write to standard output");
}

/// Part of the answer to *IDN?, whose fields are split at commas, and of locators.
std::string CheckSerialNumber(const std::string& text) {
  const auto isAllowed = [](char c) { return c > ' ' && c <= '~' && c != ',' && c != ':'; };
  if (!text.empty() && text.size() <= 63 && std::all_of(text.begin(), text.end(), isAllowed)) return {};
  return "must be at most 63 printable characters, without blanks, commas and colons";
}

std::string UsageFailure(const CLI::App* /*app*/, const CLI::Error& error) {
  return std::string("qvio-sim: ") + error.what() + "\nTry \"qvio-sim --help\".\n";
}

qvsim::MakeResponder ResponderOf(const Settings& settings, const qvsim::ControllerSettings& controller) {
  return settings.echo ? qvsim::MakeResponder(qvsim::MakeEcho) : qvsim::ServeController(controller);
}

void ServeSerial(const Settings& settings, const qvsim::MainLoop& mainLoop) {
  qvsim::EventLoop loop;
  const qvsim::SerialDevice device(loop, ResponderOf(settings, settings.controller));
  const DeviceLink link(device.path(), settings.link);
  Announce(device.path());
  mainLoop.run();
}

void ServeNetwork(const Settings& settings, const qvsim::MainLoop& mainLoop) {
  qvsim::EventLoop loop;
  const qvsim::NetworkDevice device(loop, settings.address, settings.port,
                                    ResponderOf(settings, settings.controller));
  Announce(settings.address + ':' + std::to_string(device.port()));
  mainLoop.run();
}

/// The serial number itself for one controller, else numbered from 1.
std::string SerialNumberOf(const Settings& settings, unsigned index) {
  if (settings.count == 1) return settings.controller.serialNumber;
  std::string number = std::to_string(index + 1);
  number.insert(0, number.size() < 4 ? 4 - number.size() : 0, '0');
  return settings.controller.serialNumber + '-' + number;
}

/// Returns the line that announces it.
std::string AddController(qvsim::ControllerGroup& group, const Settings& settings, unsigned index) {
  auto controller = settings.controller;
  auto identity = settings.identity;
  identity.serialNumber = controller.serialNumber = SerialNumberOf(settings, index);
  const auto port = settings.port == 0 ? 0 : settings.port + index;
  if (port > 65535) throw std::invalid_argument("a controller would need a port above 65535");
  const auto taken = group.add(identity, ResponderOf(settings, controller), static_cast<uint16_t>(port));
  return "network:sn:" + identity.serialNumber + ' ' + *settings.iface + ':' + std::to_string(taken);
}

void ServeGroup(const Settings& settings, const qvsim::MainLoop& mainLoop) {
  qvsim::AllowManyDescriptors();
  qvsim::EventLoop loop;
  auto faults = settings.faults;
  faults.delay = std::chrono::milliseconds(settings.delayMs);
  if (settings.refusal) faults.refusal = static_cast<quorvind::ResultCode>(*settings.refusal);
  qvsim::ControllerGroup group(
      loop, {*settings.iface, std::chrono::milliseconds(settings.spreadMs), settings.seed, faults});
  std::string lines;
  for (unsigned index = 0; index < settings.count; ++index)
    lines += (index == 0 ? "" : "\n") + AddController(group, settings, index);
  Announce(lines);
  mainLoop.run([&](std::string_view line) {
    const auto failure = qvsim::Control(group, line);
    if (!failure.empty()) std::fprintf(stderr, "qvio-sim: %s\n", failure.c_str());
  });
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

CLI::App* AddSerialCommand(CLI::App& app, Settings& settings) {
  auto* const serial = app.add_subcommand("serial", "A device on a pseudo terminal; prints its path");
  AddDeviceOptions(*serial, settings);
  serial->add_option("--link", settings.link, "Also make this symbolic link to it, removed at the end");
  serial->footer(std::string(kProtocol) +
                 "Example:\n  qvio-sim serial --link /tmp/stage &\n"
                 "  qvio send serial:/tmp/stage \"*IDN?\" -o \"baudrate 115200\"");
  return serial;
}

/// The options of discovery; all need --iface.
void AddDiscoveryOptions(CLI::App& network, Settings& settings, CLI::Option* iface) {
  const std::vector<CLI::Option*> options{
      network
          .add_option("--count", settings.count, "Number of controllers; they are numbered, as SIM-0001-0042")
          ->check(CLI::PositiveNumber)
          ->capture_default_str(),
      network.add_option("--type", settings.identity.deviceType, "Device type")->capture_default_str(),
      network.add_option("--protocol", settings.identity.protocolId, "Protocol id, 0 to 255")
          ->capture_default_str(),
      network.add_option("--info", settings.identity.info, "Device info text")->capture_default_str(),
      network.add_option("--spread", settings.spreadMs, "Answers are spread over this many milliseconds")
          ->capture_default_str(),
      network.add_option("--seed", settings.seed, "Of the random moments and losses")->capture_default_str(),
      network.add_option("--drop", settings.faults.drop, "Fault: probability that a request is not heard")
          ->check(CLI::Range(0.0, 1.0)),
      network.add_option("--delay", settings.delayMs, "Fault: answers are this many milliseconds late"),
      network.add_flag("--duplicate", settings.faults.duplicate, "Fault: every answer is sent twice"),
      network.add_flag("--malformed", settings.faults.malformed,
                       "Fault: a malformed datagram goes before every answer"),
      network.add_flag("--wrong-token", settings.faults.wrongToken, "Fault: answers carry a wrong token"),
      network.add_option("--refuse", settings.refusal,
                         "Fault: refuse to be configured, with this result code (31: PermissionDenied)")};
  for (auto* const option : options) option->needs(iface);
}

CLI::App* AddNetworkCommand(CLI::App& app, Settings& settings) {
  auto* const network =
      app.add_subcommand("network", "Network controllers; prints a line with address and port for each");
  AddDeviceOptions(*network, settings);
  network->add_option("--port", settings.port, "TCP port, of the first controller; 0: the system chooses")
      ->capture_default_str();
  auto* const listen = network->add_option("--listen", settings.address, "Address of a local interface")
                           ->check(CLI::ValidIPV4)
                           ->capture_default_str();
  auto* const iface = network
                          ->add_option("--iface", settings.iface,
                                       "Take part in discovery on this local address, and listen there")
                          ->check(CLI::ValidIPV4)
                          ->excludes(listen);
  AddDiscoveryOptions(*network, settings, iface);
  network->footer(std::string(kProtocol) + "With --iface: " + qvsim::kControlHelp +
                  "Example:\n  qvio-sim network --port 5000 &\n"
                  "  qvio send network:127.0.0.1:5000 \"POS?\"\n"
                  "  qvio-sim network --iface 127.0.0.1 --count 3 &\n"
                  "  qvio list --iface 127.0.0.1");
  return network;
}

CLI::App* AddUsbCommand(CLI::App& app, Settings& settings) {
  auto* const usb = app.add_subcommand("usb", "Run a program that finds simulated FTDI chips");
  usb->positionals_at_end();
  usb->add_option("--chips", settings.chips, "File with other chips than one of each product")
      ->check(CLI::ExistingFile);
  usb->add_option("program", settings.program, "The program and its arguments, after \"--\"")->required();
  usb->footer(
      "The program loads a stand-in instead of FTDI's driver. Exit status: the program's; 126 or 127 if it\n"
      "cannot be run.\nExample:\n  qvio-sim usb -- qvio list --kind usb");
  return usb;
}

}  // namespace

int main(int argc, char** argv) try {
  Settings settings;
  CLI::App app("Simulated motion controllers, until interrupted", "qvio-sim");
  app.require_subcommand(1);
  app.failure_message(UsageFailure);
  app.footer(
      "Examples:\n  qvio-sim serial --echo\n  qvio-sim network --port 5000\n"
      "  qvio-sim network --iface 127.0.0.1 --count 3\n  qvio-sim usb -- qvio list --kind usb\n"
      "\"qvio-sim COMMAND --help\" gives more help. Exit status: 0 ended by a signal, 1 failure, 2 wrong "
      "usage.");
  auto* const serial = AddSerialCommand(app, settings);
  AddNetworkCommand(app, settings);
  auto* const usb = AddUsbCommand(app, settings);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  if (usb->parsed()) return qvsim::RunWithUsbChips(settings.program, settings.chips);
  const qvsim::MainLoop mainLoop;
  if (serial->parsed()) {
    ServeSerial(settings, mainLoop);
  } else {
    settings.iface ? ServeGroup(settings, mainLoop) : ServeNetwork(settings, mainLoop);
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "qvio-sim: %s\n", error.what());
  return 1;
}
