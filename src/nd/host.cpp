#include "nd/host.h"

#include <utility>

#include "nd/errors.h"
#include "nd/log.h"
#include "nd/packet_text.h"

namespace quorvind {
namespace {

/// A request for any device would give all of them the same configuration.
void RequireAddressed(uint32_t deviceType, const std::string& serialNumber) {
  if (deviceType == kAnyDeviceType || serialNumber.empty())
    throw InvalidArgumentException("Must address specific device");
}

}  // namespace

/// Waiters first: the thread may still complete a request while it stops.
Host::~Host() {
  answers_->cancelAll();
  takeRunning().stop();
}

void Host::Running::stop() const noexcept {
  if (reception) reception->stop();
}

void Host::start(std::unique_ptr<Connection> connection) {
  const std::lock_guard lock(mutex_);
  // A second reception would deliver every answer twice.
  if (running_.connection) throw InvalidOperationException("Host already running");
  Running running;
  running.connection = std::move(connection);
  running.reception = std::make_shared<Reception>(running.connection, answers_);
  running.thread = cppu::Thread("qvio-nd", running.reception);
  running_ = std::move(running);
}

void Host::start(const IP4Set& interfaces) { start(CreateConnection(interfaces)); }

Host::Running Host::takeRunning() {
  const std::lock_guard lock(mutex_);
  return std::exchange(running_, {});
}

void Host::stop() {
  // Taken out under the lock, stopped without it: a listener that is running may call the host.
  auto running = takeRunning();
  if (!running.connection) return;
  answers_->dropAll();
  running.stop();
  running.thread.join();
}

/// A random UUID, version 4.
RequestToken Host::drawToken() {
  cppu::ByteWriter out;
  {
    const std::lock_guard lock(mutex_);
    out.le(random_());
    out.le(random_());
  }
  RequestToken token;
  cppu::ByteReader(out.take()).into(token);
  token[6] = static_cast<uint8_t>((token[6] & 0x0FU) | 0x40U);
  token[8] = static_cast<uint8_t>((token[8] & 0x3FU) | 0x80U);
  return token;
}

void Host::send(uint32_t networkId, const QV_ND_Packet& packet) {
  std::shared_ptr<Connection> connection;
  {
    const std::lock_guard lock(mutex_);
    connection = running_.connection;
  }
  if (!connection) throw InvalidOperationException("Host is not running");
  const auto datagram = EncodePacket(packet);  // without the lock, like the send: neither needs the host
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

void Host::discover(uint32_t deviceType, const std::string& serialNumber) {
  send(0, MakeDiscoverRequest(deviceType, serialNumber, drawToken()));
}

/// Sends the packet that `make` makes of a new token, and gives the future of its answer.
template <class Answer, class Make>
std::future<Answer> Host::request(PendingRequests<Answer>& pending, Make make) {
  const auto token = drawToken();
  auto answer = pending.add(token);  // first: the answer may come before send() returns
  try {
    send(0, make(token));
    // A request that was not sent would wait for its answer forever.
  } catch (const std::exception&) {
    pending.drop(token);
    throw;
  }
  return answer;
}

std::future<GetDeviceConfigResult> Host::getConfiguration(uint32_t deviceType,
                                                          const std::string& serialNumber) {
  RequireAddressed(deviceType, serialNumber);
  return request(answers_->configurationQueries, [&](const RequestToken& token) {
    return MakeGetConfiguration(deviceType, serialNumber, token);
  });
}

std::future<ResultCode> Host::setConfiguration(uint32_t deviceType, const std::string& serialNumber,
                                               const DeviceConfig& config) {
  RequireAddressed(deviceType, serialNumber);
  return request(answers_->sets, [&](const RequestToken& token) {
    return MakeSetConfiguration(deviceType, serialNumber, token, config);
  });
}

std::future<ResultCode> Host::resetConfiguration(uint32_t deviceType, const std::string& serialNumber) {
  RequireAddressed(deviceType, serialNumber);
  return request(answers_->resets, [&](const RequestToken& token) {
    return MakeResetConfiguration(deviceType, serialNumber, token);
  });
}

std::future<ResultCode> Host::setDeviceInfo(uint32_t deviceType, const std::string& serialNumber,
                                            const std::string& info) {
  RequireAddressed(deviceType, serialNumber);
  return request(answers_->sets, [&](const RequestToken& token) {
    return MakeSetDeviceInfo(deviceType, serialNumber, token, info);
  });
}

std::size_t Host::addListener(Listeners::Listener listener) {
  return answers_->listeners.add(std::move(listener));
}

void Host::removeListener(std::size_t id) { answers_->listeners.remove(id); }

}  // namespace quorvind
