#include "io/io_network.h"

#include <chrono>
#include <limits>
#include <stdexcept>
#include <utility>

#include "io/tcp_connect.h"
#include "nd/discovery.h"
#include "options/locator.h"
#include "options/option_sets.h"
#include "util/failure.h"
#include "util/number.h"

namespace qvio {
namespace {

constexpr DescriptorKind kNetworkKind{.nothingReady = QV_IO_ERROR_CONNECTION_LOST,
                                      .peerReset = QV_IO_ERROR_CONNECTION_LOST,
                                      .largestWrite = std::numeric_limits<int32_t>::max(),
                                      .socket = true,
                                      .failedReadIsDelivered = false};

constexpr uint32_t kLargestPort = std::numeric_limits<uint16_t>::max();

void RequirePort(uint32_t port) {
  Require(port <= kLargestPort, QV_IO_ERROR_INVALID_ARGUMENT, "port % is above %", {port, kLargestPort});
}

// Reads the leading digits, as the options do: anything may follow them.
uint16_t ReadPort(const std::string& field) {
  uint32_t port = kLargestPort + 1;
  try {
    port = cppu::ToUint32(field);
  } catch (const std::logic_error&) {
    Fail(QV_IO_ERROR_INVALID_ARGUMENT, "not a port: %", {field});
  }
  RequirePort(port);
  return static_cast<uint16_t>(port);
}

/// The locator, the option and the discovered port, in this order; 0 means not set.
uint16_t FirstSet(uint16_t first, uint32_t second, uint16_t third) {
  if (first != 0) return first;
  return second != 0 ? static_cast<uint16_t>(second) : third;
}

quorvind::Endpoint FindEndpoint(const NetworkTarget& target, const NetworkOptions& options) {
  quorvind::Endpoint endpoint{target.host, 0};
  if (!target.serialNumber.empty()) {
    endpoint = quorvind::FindDevice(target.serialNumber, options.ifaces,
                                    std::chrono::milliseconds(options.discoveryTimeout));
  }
  endpoint.port = FirstSet(target.port, options.port, endpoint.port);
  Require(endpoint.port != 0, QV_IO_ERROR_INVALID_ARGUMENT, "no port is given for %", {endpoint.host});
  return endpoint;
}

}  // namespace

NetworkTarget ReadNetworkTarget(const Locator& locator) {
  const auto& fields = locator.fields;
  const bool bySerial = fields.size() > 1 && fields[0] == "sn";  // "network:sn" alone names a host
  const std::size_t portField = bySerial ? 2 : 1;
  Require(!fields.empty() && fields.size() <= portField + 1, QV_IO_ERROR_INVALID_LOCATOR,
          "not network:HOST:PORT or network:sn:SERIAL: %", {locator.text});

  NetworkTarget target;
  (bySerial ? target.serialNumber : target.host) = fields[portField - 1];
  if (fields.size() > portField) target.port = ReadPort(fields[portField]);
  return target;
}

IoNetwork::IoNetwork(ChannelArguments arguments) : DescriptorChannel(kNetworkKind, std::move(arguments)) {}

cppu::UniqueFd IoNetwork::openDescriptor() const {
  const auto settings = ReadNetworkOptions(options());
  RequirePort(settings.port);  // also when the locator names one: a wrong option is an error anyway
  const auto endpoint = FindEndpoint(ReadNetworkTarget(locator()), settings);
  return ConnectTcp(endpoint.host, endpoint.port, std::chrono::milliseconds(settings.connectTimeout));
}

std::string IoNetwork::property(std::string_view key) {
  Fail(QV_IO_ERROR_PROPERTY_UNAVAILABLE, "a TCP link has no property %", {key});
}

}  // namespace qvio
