#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "options/locator.h"
#include "quorvio/quorvio.h"
#include "util/fork.h"

namespace qvio {

/// What the application gave to QV_IO_Open.
struct ChannelArguments {
  Locator locator;
  std::string options;
  void* userData;
  QV_IO_ReceiveCallback onReceive;  ///< null: received bytes are discarded
  QV_IO_ErrorCallback onError;      ///< may be null
};

/// A channel: a byte pipe to one device over one kind of link. Always in shared ownership: the handle table
/// holds one reference, each call of the application another while it lasts, and the running receive thread
/// its own.
class IoDevice {
 public:
  /// Stores its arguments and touches no device.
  explicit IoDevice(ChannelArguments arguments) : arguments_(std::move(arguments)) {
    if (arguments_.onReceive == nullptr) arguments_.onReceive = Discard;
  }
  IoDevice(const IoDevice&) = delete;
  IoDevice& operator=(const IoDevice&) = delete;
  virtual ~IoDevice() = default;

  /// Acquires the device and starts the receive thread. Called once, with the reference that the receive
  /// thread will hold. Throws Failure or OptionsError; then nothing is left behind, and no callback was
  /// called.
  virtual void open(std::shared_ptr<IoDevice> self) = 0;

  /// Asks the receive thread to release the device and end; called once, after a successful open. With `wait`
  /// it has ended on return, unless this is the receive thread itself, inside a callback.
  virtual void close(bool wait) = 0;

  /// Sends all bytes, in order. Any thread. Throws Failure.
  virtual void send(std::span<const uint8_t> bytes) = 0;

  /// The text of a property. Any thread. Throws Failure with QV_IO_ERROR_PROPERTY_UNAVAILABLE for a key that
  /// links of this kind do not have.
  [[nodiscard]] virtual std::string property(std::string_view key) = 0;

  /// QV_IO_INTERFACE_…
  [[nodiscard]] uint32_t interfaceType() const { return arguments_.locator.interfaceType; }

 protected:
  [[nodiscard]] const Locator& locator() const { return arguments_.locator; }
  [[nodiscard]] const std::string& options() const { return arguments_.options; }
  [[nodiscard]] bool reportsErrors() const { return arguments_.onError != nullptr; }

  /// Receive thread only.
  void deliver(const uint8_t* data, std::size_t length) const {
    cppu::CallApplication(arguments_.onReceive, arguments_.userData, data, length);
  }
  void report(uint32_t resultCode) const {
    if (reportsErrors()) cppu::CallApplication(arguments_.onError, arguments_.userData, resultCode);
  }

 private:
  static void Discard(void* /*userData*/, const uint8_t* /*data*/, std::size_t /*length*/) {}

  ChannelArguments arguments_;  ///< onReceive is never null
};

}  // namespace qvio
