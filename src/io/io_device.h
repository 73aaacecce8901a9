#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "quorvio/quorvio.h"
#include "util/fork.h"

namespace qvio {

/// What the application gave to QV_IO_Open.
struct ChannelArguments {
  std::string locator;
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
  explicit IoDevice(ChannelArguments arguments);
  IoDevice(const IoDevice&) = delete;
  IoDevice& operator=(const IoDevice&) = delete;
  virtual ~IoDevice() = default;

  /// Acquires the device and starts the receive thread. Called once, with the reference that the receive
  /// thread will hold. Any result but QV_IO_OK leaves nothing behind, and no callback was called.
  virtual uint32_t open(std::shared_ptr<IoDevice> self) = 0;

  /// Asks the receive thread to release the device and end; called once, after a successful open. With `wait`
  /// it has ended on return, unless this is the receive thread itself, inside a callback.
  virtual void close(bool wait) = 0;

  /// Sends all bytes, in order. Any thread.
  virtual uint32_t send(const void* data, std::size_t length) = 0;

  /// Hands out the text of a property by the property rule. Any thread.
  virtual uint32_t getProperty(const char* key, char* buffer, std::size_t* size) = 0;

 protected:
  /// Hands a text out by the property rule. Throws Failure with QV_IO_ERROR_BUFFER_TOO_SMALL.
  static void handOut(std::string_view text, char* buffer, std::size_t* size);

  [[nodiscard]] uint32_t interfaceType() const { return interfaceType_; }
  [[nodiscard]] const std::string& locator() const { return arguments_.locator; }
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
  uint32_t interfaceType_ = 0;
  ChannelArguments arguments_;  ///< onReceive is never null
};

}  // namespace qvio
