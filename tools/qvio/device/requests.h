#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <string>

#include "device/search.h"
#include "nd/host.h"

namespace qvio_tool {

inline constexpr std::size_t kLongestText = 63;  ///< the protocol's bound for a serial number and an info

/// The arguments of every command that configures one device.
struct TargetOptions {
  DiscoveryOptions discovery;
  std::string serialNumber;
  std::optional<uint32_t> type;
  uint32_t timeoutMs = 1000;

  void addTo(CLI::App& command);
};

/// The question before something is changed.
class Confirmation {
 public:
  void addTo(CLI::App& command);

  /// Throws CommandFailure when the question is needed and standard input is not a terminal. Call it before
  /// anything is sent.
  void requirePossible() const;

  /// Prints the summary on standard error and asks. Throws CommandFailure unless the answer is yes.
  void ask(const std::string& summary) const;

 private:
  bool yes_ = false;
};

/// Asks discovery for the device, up to three times within the time-out; none when it does not answer.
/// Throws CommandFailure when devices of several types have the serial number and no type is given.
std::optional<quorvio::Device> FindTarget(const TargetOptions& target);

/// Requests to one device. Each is sent up to three times within the time-out, since datagrams get lost.
/// All throw CommandFailure when the device refuses or does not answer.
class DeviceRequests {
 public:
  /// Searches for the type if it is not given.
  explicit DeviceRequests(const TargetOptions& target);

  [[nodiscard]] quorvind::DeviceConfig configuration();
  void setConfiguration(const quorvind::DeviceConfig& config);
  void resetConfiguration();
  void setDeviceInfo(const std::string& info);

  [[nodiscard]] uint32_t type() const { return type_; }

  /// "device SERIAL (type TYPE)".
  [[nodiscard]] std::string name() const;

 private:
  template <class Answer>
  Answer answerOf(const std::function<std::future<Answer>()>& ask) const;
  void change(const std::function<std::future<quorvind::ResultCode>()>& ask) const;
  [[nodiscard]] std::string noAnswer() const;

  std::string serialNumber_;
  std::chrono::milliseconds timeout_;
  uint32_t type_;
  quorvind::Host host_;
};

}  // namespace qvio_tool
