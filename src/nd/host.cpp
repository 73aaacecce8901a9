#include "nd/host.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <random>
#include <string_view>
#include <utility>

#include "nd/errors.h"
#include "nd/log.h"
#include "nd/packet_text.h"
#include "nd/pending_requests.h"
#include "util/retired_threads.h"

namespace quorvind {
namespace {

using namespace std::chrono_literals;

constexpr int64_t kReceiveTimeoutMs = 5000;
constexpr auto kRestAfterFault = 100ms;  // a transport that keeps failing must not cost a core

void RequireAddressed(uint32_t deviceType, const std::string& serialNumber) {
  if (deviceType == kAnyDeviceType || serialNumber.empty())
    throw InvalidArgumentException("Must address specific device");
}

/// What those get who wait for an answer of a host that ends; that there is no memory, where that is so.
std::exception_ptr Cancelled() noexcept {
  try {
    return std::make_exception_ptr(RequestCancelledException("Cancelled"));
  } catch (const std::bad_alloc&) {
    return std::current_exception();
  }
}

}  // namespace

class Host::Core {
 public:
  /// Host::start; the thread holds the core.
  static void start(const std::shared_ptr<Core>& self, std::shared_ptr<Connection> connection);

  /// Host::stop but for the thread, which is handed over.
  cppu::Thread stop();

  void cancelPending() noexcept;

  void discover(uint32_t deviceType, const std::string& serialNumber);

  /// Sends the packet that `make` makes of a new token, and gives the future of its answer.
  template <class Answer, class Make>
  std::future<Answer> request(PendingRequests<Answer> Core::*table, Make make);

  PendingRequests<GetDeviceConfigResult> configurationQueries;
  PendingRequests<ResultCode> resets;
  PendingRequests<ResultCode> sets;
  Listeners listeners;

 private:
  void run(const std::shared_ptr<Connection>& connection);
  void receiveOnce(Connection& connection);
  bool isRunning(const std::shared_ptr<Connection>& connection);
  void rest(const std::shared_ptr<Connection>& connection, std::string_view failure);
  void dispatch(const QV_ND_Packet& packet, const IP4& sender);
  void notify(const QV_ND_Packet& packet, const IP4& sender);
  void completeWithResult(const QV_ND_Packet& packet);
  void completeWithConfiguration(const QV_ND_Packet& packet);
  void send(uint32_t networkId, const QV_ND_Packet& packet);
  RequestToken drawToken();  // caller holds mutex_

  /// Guards the pending tables and what follows; a leaf.
  std::mutex mutex_;
  std::condition_variable stopped_;
  /// There while the host runs. A receive thread goes on as long as this is the connection it was given.
  std::shared_ptr<Connection> connection_;
  cppu::Thread thread_;
  std::mt19937_64 random_{std::random_device("default")()};
};

void Host::Core::start(const std::shared_ptr<Core>& self, std::shared_ptr<Connection> connection) {
  const std::lock_guard lock(self->mutex_);
  if (self->connection_) throw InvalidOperationException("Host already running");
  self->thread_ = cppu::Thread("qvio-nd", [self, connection] { self->run(connection); });
  self->connection_ = std::move(connection);
}

cppu::Thread Host::Core::stop() {
  std::unique_lock lock(mutex_);
  const auto connection = std::exchange(connection_, nullptr);
  if (!connection) return {};
  const auto dropped = std::tuple(std::exchange(configurationQueries, {}), std::exchange(resets, {}),
                                  std::exchange(sets, {}));  // destroyed after the lock is let go
  auto thread = std::exchange(thread_, {});
  lock.unlock();
  stopped_.notify_all();
  const bool alive = !thread.endsBefore(std::chrono::steady_clock::now());
  connection->Close(alive);
  return thread;
}

void Host::Core::cancelPending() noexcept {
  const auto cancelled = Cancelled();
  const std::lock_guard lock(mutex_);
  configurationQueries.failAll(cancelled);
  resets.failAll(cancelled);
  sets.failAll(cancelled);
}

/// A random UUID, version 4.
RequestToken Host::Core::drawToken() {
  cppu::ByteWriter out;
  out.le(random_());
  out.le(random_());
  RequestToken token;
  cppu::ByteReader(out.take()).into(token);
  token[6] = static_cast<uint8_t>((token[6] & 0x0FU) | 0x40U);
  token[8] = static_cast<uint8_t>((token[8] & 0x3FU) | 0x80U);
  return token;
}

void Host::Core::send(uint32_t networkId, const QV_ND_Packet& packet) {
  std::shared_ptr<Connection> connection;
  {
    const std::lock_guard lock(mutex_);
    connection = connection_;
  }
  if (!connection) throw InvalidOperationException("Host is not running");
  const auto datagram = EncodePacket(packet);
  if (IsLogged(LogCategory::Packets)) {
    Log(LogCategory::Packets,
        "Host sending packet over " + connection->NetworkName(networkId) + ": " + ToString(packet));
  }
  if (IsLogged(LogCategory::RawDatagrams)) {
    Log(LogCategory::RawDatagrams, "Host sending raw packet over " + connection->NetworkName(networkId) +
                                       ": " + ToString(QV_ND_RawPacket{datagram}));
  }
  connection->Send(networkId, datagram);
}

void Host::Core::discover(uint32_t deviceType, const std::string& serialNumber) {
  RequestToken token;
  {
    const std::lock_guard lock(mutex_);
    token = drawToken();
  }
  send(0, MakeDiscoverRequest(deviceType, serialNumber, token));
}

template <class Answer, class Make>
std::future<Answer> Host::Core::request(PendingRequests<Answer> Core::*table, Make make) {
  std::unique_lock lock(mutex_);
  const auto token = drawToken();
  auto answer = (this->*table).add(token);
  lock.unlock();
  try {
    send(0, make(token));
  } catch (...) {
    lock.lock();
    (this->*table).drop(token);
    throw;
  }
  return answer;
}

bool Host::Core::isRunning(const std::shared_ptr<Connection>& connection) {
  const std::lock_guard lock(mutex_);
  return connection_ == connection;
}

/// Nothing that happens here ends the process: what fails is logged, and the thread goes on.
void Host::Core::run(const std::shared_ptr<Connection>& connection) {
  while (isRunning(connection)) {
    try {
      receiveOnce(*connection);
    } catch (const std::exception& failure) {
      rest(connection, failure.what());
    } catch (...) {
      rest(connection, "unknown failure");
    }
  }
}

void Host::Core::rest(const std::shared_ptr<Connection>& connection, std::string_view failure) {
  LogWarning("Host could not process a datagram", failure);
  std::unique_lock lock(mutex_);
  stopped_.wait_for(lock, kRestAfterFault, [&] { return connection_ != connection; });
}

void Host::Core::receiveOnce(Connection& connection) {
  uint32_t networkId = 0;
  IP4 sender{};
  QV_ND_RawPacket datagram;
  if (!connection.Receive(networkId, sender, datagram.Data, kReceiveTimeoutMs)) return;
  QV_ND_Packet packet;
  const bool valid = DecodePacket(datagram.Data, packet);
  const auto origin = [&] { return connection.NetworkName(networkId) + " from " + IP4ToString(sender); };
  if (IsLogged(LogCategory::RawDatagrams)) {
    Log(LogCategory::RawDatagrams, std::string("Host got ") + (valid ? "valid " : "invalid ") +
                                       "raw packet over " + origin() + ": " + ToString(datagram));
  }
  if (!valid) return;
  if (IsLogged(LogCategory::Packets))
    Log(LogCategory::Packets, "Host got packet over " + origin() + ": " + ToString(packet));
  dispatch(packet, sender);
}

void Host::Core::dispatch(const QV_ND_Packet& packet, const IP4& sender) {
  switch (packet.OpCode) {
    case opcode::kDiscoverReply:
    case opcode::kDiscoverInform:
      return notify(packet, sender);
    case opcode::kResult:
      return completeWithResult(packet);
    case opcode::kConfiguration:
      return completeWithConfiguration(packet);
    default:
      return;  // another host's request, heard because the networks are shared
  }
}

void Host::Core::notify(const QV_ND_Packet& packet, const IP4& sender) {
  DiscoverInfo info{.DeviceType = packet.DeviceType,
                    .SerialNumber = packet.SerialNumber,
                    .Address = sender,
                    .LastSeen = std::chrono::steady_clock::now(),
                    .IsReply = packet.OpCode == opcode::kDiscoverReply};
  if (ReadDiscoverInfo(packet, info.ProtocolId, info.Port, info.Available, info.Info)) listeners.notify(info);
}

void Host::Core::completeWithResult(const QV_ND_Packet& packet) {
  std::promise<ResultCode> result;
  std::promise<GetDeviceConfigResult> query;
  bool isQuery = false;
  {
    const std::lock_guard lock(mutex_);
    const bool isResult = resets.take(packet.Token, result) || sets.take(packet.Token, result);
    isQuery = !isResult && configurationQueries.take(packet.Token, query);
    if (!isResult && !isQuery) return;
  }
  ResultCode code{};
  if (ReadResult(packet, code)) return isQuery ? query.set_value({code, {}}) : result.set_value(code);
  const auto failure = std::make_exception_ptr(ProtocolException("Invalid Result packet"));
  isQuery ? query.set_exception(failure) : result.set_exception(failure);
}

void Host::Core::completeWithConfiguration(const QV_ND_Packet& packet) {
  std::promise<GetDeviceConfigResult> query;
  {
    const std::lock_guard lock(mutex_);
    if (!configurationQueries.take(packet.Token, query)) return;
  }
  DeviceConfig config;
  if (ReadConfiguration(packet, config)) return query.set_value({ResultCode::Success, config});
  query.set_exception(std::make_exception_ptr(ProtocolException("Invalid Configuration packet")));
}

Host::Host() : core_(std::make_shared<Core>()) {}

Host::~Host() {
  core_->cancelPending();
  try {
    stop();
  } catch (const QuorviNDException& failure) {
    LogWarning("Could not stop a host", failure.what());
  }
}

void Host::start(std::unique_ptr<Connection> connection) { Core::start(core_, std::move(connection)); }

void Host::start(const IP4Set& interfaces) { start(CreateConnection(interfaces)); }

void Host::stop() {
  auto thread = core_->stop();
  if (!thread.joinable()) return;
  if (thread.isCurrent()) return cppu::Retired().add(std::move(thread));
  thread.join();
}

void Host::retire() {
  auto thread = core_->stop();
  if (thread.joinable()) cppu::Retired().add(std::move(thread));
}

void Host::discover(uint32_t deviceType, const std::string& serialNumber) {
  core_->discover(deviceType, serialNumber);
}

std::future<GetDeviceConfigResult> Host::getConfiguration(uint32_t deviceType,
                                                          const std::string& serialNumber) {
  RequireAddressed(deviceType, serialNumber);
  return core_->request(&Core::configurationQueries, [&](const RequestToken& token) {
    return MakeGetConfiguration(deviceType, serialNumber, token);
  });
}

std::future<ResultCode> Host::setConfiguration(uint32_t deviceType, const std::string& serialNumber,
                                               const DeviceConfig& config) {
  RequireAddressed(deviceType, serialNumber);
  return core_->request(&Core::sets, [&](const RequestToken& token) {
    return MakeSetConfiguration(deviceType, serialNumber, token, config);
  });
}

std::future<ResultCode> Host::resetConfiguration(uint32_t deviceType, const std::string& serialNumber) {
  RequireAddressed(deviceType, serialNumber);
  return core_->request(&Core::resets, [&](const RequestToken& token) {
    return MakeResetConfiguration(deviceType, serialNumber, token);
  });
}

std::future<ResultCode> Host::setDeviceInfo(uint32_t deviceType, const std::string& serialNumber,
                                            const std::string& info) {
  RequireAddressed(deviceType, serialNumber);
  return core_->request(&Core::sets, [&](const RequestToken& token) {
    return MakeSetDeviceInfo(deviceType, serialNumber, token, info);
  });
}

std::size_t Host::addListener(Listeners::Listener listener) {
  return core_->listeners.add(std::move(listener));
}

void Host::removeListener(std::size_t id) { core_->listeners.remove(id); }

}  // namespace quorvind
