#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <string>

#include "device.h"
#include "discovery_options.h"
#include "nd/host.h"

namespace qvio_tool {

/// The arguments of every command that configures one device.
struct TargetOptions {
  DiscoveryOptions discovery;
  std::string serialNumber;
  std::optional<uint32_t> type;
  uint32_t timeoutMs = 1000;

  void addTo(CLI::App& command);
};

/// Asks discovery for the device, up to three times within the time-out; none when it does not answer.
/// Throws CommandFailure when devices of several types have the serial number and no type is given.
std::optional<Device> FindTarget(const TargetOptions& target);

/// Requests to one device. Each is sent up to three times within the time-out, since datagrams get lost.
/// All throw CommandFailure when the device refuses or does not answer.
class DeviceRequests {
 public:
  /// Finds out the type if it is not given.
  explicit DeviceRequests(const TargetOptions& target);

  [[nodiscard]] quorvind::DeviceConfig configuration();
  void setConfiguration(const quorvind::DeviceConfig& config);
  void resetConfiguration();
  void setDeviceInfo(const std::string& info);

  [[nodiscard]] uint32_t type() const { return type_; }

  /// For the first line of a summary.
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
