#include "device/requests.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <vector>

#include "nd/errors.h"
#include "nd/packet_text.h"
#include "terminal/failure.h"
#include "terminal/output.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

using quorvind::DeviceConfig;
using quorvind::GetDeviceConfigResult;
using quorvind::ResultCode;
using quorvio::Device;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kTries = 3;
constexpr milliseconds kLook{10};  // how often late answers to earlier tries are looked for

void RequireSuccess(ResultCode code) {
  if (code == ResultCode::Success) return;
  throw CommandFailure("the device refused: " + std::string(quorvind::ResultCodeName(code)) + " (" +
                       std::to_string(static_cast<unsigned>(code)) + ")");
}

uint32_t TypeOf(const TargetOptions& target) {
  if (target.type) return *target.type;
  if (const auto device = FindTarget(target)) return device->type;
  throw CommandFailure("device " + OneLine(target.serialNumber) + " has not answered a search within " +
                           std::to_string(target.timeoutMs) + " ms: " + kWhatToCheck +
                           "; \"qvio list --all\" lists the devices that answer, --type avoids this search, "
                           "--timeout MS waits longer",
                       TimedOut);
}

}  // namespace

void TargetOptions::addTo(CLI::App& command) {
  const auto problem = [](const std::string& text) -> std::string {
    if (text.empty()) return "a serial number is not empty";
    return text.size() > kLongestText ? "longer than " + std::to_string(kLongestText) + " bytes" : "";
  };
  command.add_option("serial", serialNumber, "The device's serial number")->required()->check(problem);
  command.add_option("--type", type, "The device's type, a number; searched for if not given")
      ->check(CLI::Range(0U, quorvind::kAnyDeviceType - 1));
  discovery.addTo(command);
  command
      .add_option("--timeout", timeoutMs,
                  "Milliseconds to wait for each answer; asks three times within them")
      ->capture_default_str();
}

void Confirmation::addTo(CLI::App& command) { command.add_flag("--yes", yes_, "Change it without asking"); }

void Confirmation::requirePossible() const {
  if (yes_ || ::isatty(STDIN_FILENO) != 0) return;
  throw CommandFailure("standard input is not a terminal to ask on; --yes changes without asking",
                       WrongUsage);
}

void Confirmation::ask(const std::string& summary) const {
  WriteAll(STDERR_FILENO, summary);
  if (yes_) return;
  WriteAll(STDERR_FILENO, "Change it? [y/N] ");
  std::string answer;
  if (!std::getline(std::cin, answer)) WriteAll(STDERR_FILENO, "\n");
  if (answer != "y" && answer != "Y" && answer != "yes") throw CommandFailure("nothing was changed");
}

std::optional<Device> FindTarget(const TargetOptions& target) {
  const DeviceSearch search(target.discovery.addresses());
  const milliseconds each{std::max(target.timeoutMs / kTries, 1U)};
  for (int asked = 0; asked < kTries; ++asked) {
    auto devices = search.ask(each);
    std::erase_if(devices, [&](const Device& device) {
      return device.serialNumber != target.serialNumber || (target.type && device.type != *target.type);
    });
    if (devices.empty()) continue;
    const auto isOther = [&](const Device& device) { return device.type != devices.front().type; };
    if (std::ranges::any_of(devices, isOther)) {
      throw CommandFailure("devices of several types have this serial number; select one with --type",
                           WrongUsage);
    }
    return devices.front();
  }
  return {};
}

DeviceRequests::DeviceRequests(const TargetOptions& target)
    : serialNumber_(target.serialNumber), timeout_(target.timeoutMs), type_(TypeOf(target)) {
  const auto addresses = target.discovery.addresses();
  try {
    host_.start(addresses);
  } catch (const quorvind::NetworkException& failure) {
    throw CommandFailure(WithHint(std::string("cannot discover: ") + failure.what(), kWhichAddresses));
  }
}

std::string DeviceRequests::name() const {
  return "device " + OneLine(serialNumber_) + " (type " + std::to_string(type_) + ")";
}

std::string DeviceRequests::noAnswer() const {
  return name() + " has not answered within " + std::to_string(timeout_.count()) + " ms: " + kWhatToCheck +
         "; are --type and --iface correct? --timeout MS waits longer";
}

template <class Answer>
Answer DeviceRequests::answerOf(const std::function<std::future<Answer>()>& ask) const {
  std::vector<std::future<Answer>> answers;
  const auto start = Clock::now();
  for (int asked = 1; asked <= kTries; ++asked) {
    answers.push_back(ask());
    const auto nextTry = start + timeout_ * asked / kTries;
    do {
      answers.back().wait_until(std::min(nextTry, Clock::now() + kLook));
      for (auto& answer : answers) {
        if (answer.wait_for(milliseconds(0)) == std::future_status::ready) return answer.get();
      }
    } while (Clock::now() < nextTry);
  }
  throw CommandFailure(noAnswer(), TimedOut);
}

DeviceConfig DeviceRequests::configuration() {
  const auto result =
      answerOf<GetDeviceConfigResult>([&] { return host_.getConfiguration(type_, serialNumber_); });
  RequireSuccess(result.Code);
  return result.Config;
}

void DeviceRequests::change(const std::function<std::future<ResultCode>()>& ask) const try {
  RequireSuccess(answerOf<ResultCode>(ask));
  std::fprintf(stderr, "qvio: %s: configuration changed\n", name().c_str());
} catch (const CommandFailure& failure) {
  if (failure.status() != TimedOut) throw;
  throw CommandFailure(std::string(failure.what()) + "; it may have been changed nevertheless", TimedOut);
}

void DeviceRequests::setConfiguration(const DeviceConfig& config) {
  change([&] { return host_.setConfiguration(type_, serialNumber_, config); });
}

void DeviceRequests::resetConfiguration() {
  change([&] { return host_.resetConfiguration(type_, serialNumber_); });
}

void DeviceRequests::setDeviceInfo(const std::string& info) {
  change([&] { return host_.setDeviceInfo(type_, serialNumber_, info); });
}

}  // namespace qvio_tool
