#pragma once

#include <cstdint>
#include <string>
#include <system_error>

#include "quorvio/quorvio.hpp"
#include "support/wait.h"

namespace qvtest {

/// Opens a channel to a device that knows its locator and options.
template <class Device>
quorvio::Channel Open(const Device& device, std::size_t bufferSize = quorvio::Channel::kDefaultBuffer) {
  return quorvio::Channel(device.locator(), quorvio::Options::fromLines(device.options()), bufferSize);
}

/// Sends the text to an echo; what comes back.
inline std::string Echoed(const quorvio::Channel& channel, const std::string& text) {
  channel.send(text);
  return channel.readExactly(text.size(), kGenerous);
}

/// The code that the action throws; none if it does not.
template <class Action>
std::error_code CodeOf(Action action) {
  try {
    action();
  } catch (const quorvio::Error& error) {
    return error.code();
  }
  return {};
}

/// The result of opening a device, which is closed again.
inline uint32_t OpenResult(const std::string& locator, const std::string& options = "") {
  const auto code = CodeOf([&] { quorvio::Channel(locator, quorvio::Options::fromLines(options)); });
  return static_cast<uint32_t>(code.value());
}

}  // namespace qvtest
