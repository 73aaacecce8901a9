#pragma once

#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <random>
#include <string>

#include "nd/answers.h"
#include "nd/connection.h"
#include "nd/packet.h"
#include "nd/reception.h"
#include "util/thread.h"

namespace quorvind {

/// The host side of the discovery protocol: sends requests, matches each answer to its request by the token,
/// and hands what devices say of themselves to listeners. Created stopped. Any thread; start and stop one at
/// a time.
///
/// A request that expects an answer gives a future. The host sets no time-out: whoever asks waits as long as
/// it likes. Of a host that stops, the futures report a broken promise.
class Host {
 public:
  Host() = default;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  /// Never waits: the receive thread ends by itself. Pending requests fail with RequestCancelledException.
  ~Host();

  /// Takes the transport and starts the receive thread. Throws InvalidOperationException on a host that runs.
  void start(std::unique_ptr<Connection> connection);

  /// The same with a transport over these local interfaces. Throws NetworkException.
  void start(const IP4Set& interfaces);

  /// Ends the receive thread and closes the transport; does nothing on a host that is stopped. Waits for a
  /// listener that is running, unless a listener calls it.
  void stop();

  /// Asks devices to describe themselves, on all networks; the listeners get the answers.
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
  /// What there is while the host runs.
  struct Running {
    std::shared_ptr<Connection> connection;
    std::shared_ptr<Reception> reception;
    cppu::Thread thread;

    void stop() const noexcept;
  };

  Running takeRunning();
  RequestToken drawToken();
  void send(uint32_t networkId, const QV_ND_Packet& packet);
  template <class Answer, class Make>
  std::future<Answer> request(PendingRequests<Answer>& pending, Make make);

  const std::shared_ptr<Answers> answers_ = std::make_shared<Answers>();
  std::mutex mutex_;  ///< guards what follows
  Running running_;
  std::mt19937_64 random_{std::random_device("default")()};
};

}  // namespace quorvind
