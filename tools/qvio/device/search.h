#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "quorvio/quorvio.hpp"
#include "util/ip4.h"
#include "util/stop_signal.h"

namespace qvio_tool {

/// What to do when a device does not answer; options of single commands come in addition.
inline constexpr const char* kWhatToCheck =
    "check that it is powered and on the same network segment, and that the firewall lets UDP 65110 and "
    "65111 in";

/// What to do when discovery cannot use an address.
inline constexpr const char* kWhichAddresses = "\"qvio ifaces\" lists the addresses of this machine";

inline constexpr const char* kNoInterface =
    "this machine has no interface for discovery: one that is up, is not the loopback, and supports "
    "broadcast or "
    "multicast";

/// The arguments of every command that discovers.
struct DiscoveryOptions {
  std::vector<std::string> ifaces;  ///< as given; empty: all
  std::string trace;                ///< how much of the discovery log is written; empty: nothing

  void addTo(CLI::App& command);
  void addTraceTo(CLI::App& command);

  /// Switches the log on if it was asked for.
  void startTrace() const;

  /// The local addresses to work over, at least one. Throws CommandFailure that names a malformed one.
  [[nodiscard]] quorvind::IP4Set addresses() const;
};

/// "network:ADDRESS" or "network:all" of a text in which the word may be left out. Throws CommandFailure with
/// WrongUsage for anything else.
std::string InterfaceText(const std::string& given);

/// The address alone of the interface on which a network device was heard.
std::string IfaceAddress(const quorvio::Device& device);

/// A search for network devices over some interfaces. Discovery listens there during its life: late answers
/// count too, and devices that appear and disappear give events. One at a time. Any thread.
class DeviceSearch {
 public:
  /// Throws CommandFailure when an interface cannot be used.
  explicit DeviceSearch(const quorvind::IP4Set& addresses);

  /// Asks once, waits for the whole time, and returns the devices that have answered, available or not.
  /// Throws CommandFailure.
  [[nodiscard]] std::vector<quorvio::Device> ask(std::chrono::milliseconds time) const;

  [[nodiscard]] quorvio::DeviceWatch& events() { return watch_; }

 private:
  quorvio::Options options_;
  quorvio::DeviceWatch watch_;
};

/// Searches at once and then repeatedly on a thread of its own: a device that vanishes without a goodbye is
/// noticed only by a search. The destructor waits for the search in progress.
class RepeatedSearch {
 public:
  /// @param pause  between two searches; 0: only the first one
  RepeatedSearch(const DeviceSearch& search, std::chrono::seconds pause)
      : thread_([this, &search, pause] { run(search, pause); }) {}
  RepeatedSearch(const RepeatedSearch&) = delete;
  RepeatedSearch& operator=(const RepeatedSearch&) = delete;
  ~RepeatedSearch() {
    stop_.request();
    thread_.join();
  }

 private:
  void run(const DeviceSearch& search, std::chrono::seconds pause) const;

  cppu::StopSignal stop_;
  std::thread thread_;
};

}  // namespace qvio_tool
