#pragma once

#include <cstdint>
#include <future>
#include <memory>
#include <string>

#include "nd/connection.h"
#include "nd/listeners.h"
#include "nd/packet.h"
#include "util/thread.h"

namespace quorvind {

/// Outcome of a configuration query.
struct GetDeviceConfigResult {
  ResultCode Code = ResultCode::Success;
  DeviceConfig Config;  ///< only with Success
};

/// The host side of the discovery protocol: sends requests, matches each answer to its request by the token,
/// and hands what devices say of themselves to listeners. Created stopped. Any thread; start and stop one at
/// a time.
///
/// A request that expects an answer gives a future. The host sets no time-out: whoever asks waits as long as
/// it likes. Of a host that stops, the futures report a broken promise.
class Host {
 public:
  Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host();

  /// Takes the transport and starts the receive thread. Throws InvalidOperationException on a host that runs.
  void start(std::unique_ptr<Connection> connection);

  /// The same with a transport over these local interfaces. Throws NetworkException.
  void start(const IP4Set& interfaces);

  /// Ends the receive thread and closes the transport; nothing on a host that is stopped. Must not be called
  /// with a lock held that a listener takes. Called by a listener, it does not wait for the thread.
  void stop();

  /// The same without waiting: the thread goes to the list of retired ones.
  void retire();

  /// Asks devices to tell of themselves, on all networks; the listeners hear the answers.
  /// @param deviceType    kAnyDeviceType for any
  /// @param serialNumber  empty for any
  /// Throws InvalidOperationException on a stopped host, NetworkException, as all requests do.
  void discover(uint32_t deviceType, const std::string& serialNumber);

  /// Requests to one device: they also throw InvalidArgumentException when type or serial number is missing.
  std::future<GetDeviceConfigResult> getConfiguration(uint32_t deviceType, const std::string& serialNumber);
  std::future<ResultCode> setConfiguration(uint32_t deviceType, const std::string& serialNumber,
                                           const DeviceConfig& config);
  std::future<ResultCode> resetConfiguration(uint32_t deviceType, const std::string& serialNumber);

  /// @param info  printable ASCII, else InvalidArgumentException; cut to 63 bytes
  std::future<ResultCode> setDeviceInfo(uint32_t deviceType, const std::string& serialNumber,
                                        const std::string& info);

  /// Listeners run on the receive thread. For remove see Listeners.
  std::size_t addListener(Listeners::Listener listener);
  void removeListener(std::size_t id);

 private:
  class Core;

  /// Shared with the receive thread, which may outlive the host for a moment.
  std::shared_ptr<Core> core_;
};

}  // namespace quorvind
