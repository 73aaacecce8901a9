#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

#include "nd/packet.h"

namespace qvsim {

/// What goes wrong when a device answers.
struct DiscoveryFaults {
  double drop = 0;                                   ///< probability that a request is not heard
  std::chrono::milliseconds delay{0};                ///< added to every answer
  bool duplicate = false;                            ///< every answer is sent twice
  bool malformed = false;                            ///< a malformed datagram goes before every answer
  bool wrongToken = false;                           ///< answers carry another token than their request
  std::optional<quorvind::ResultCode> refusal = {};  ///< to every request but the discovery
};

/// The discovery side of one network controller: its description and its configuration. Pure: it turns
/// requests into answers.
class DiscoverySide {
 public:
  struct Identity {
    std::string serialNumber;
    uint32_t deviceType = 7;
    uint8_t protocolId = 1;
    std::string info = "Simulated controller";
  };

  DiscoverySide(Identity identity, const quorvind::DeviceConfig& config);

  [[nodiscard]] const std::string& serialNumber() const { return identity_.serialNumber; }

  /// Whether the request is for this device.
  [[nodiscard]] bool isAddressedBy(const quorvind::QV_ND_Packet& request) const;

  /// The answer to a request that addresses this device.
  quorvind::QV_ND_Packet answer(const quorvind::QV_ND_Packet& request,
                                const std::optional<quorvind::ResultCode>& refusal);

  /// The unsolicited announcement of the present state.
  [[nodiscard]] quorvind::QV_ND_Packet inform() const;

  bool available = true;
  uint16_t port = 0;  ///< of the data connection

 private:
  [[nodiscard]] quorvind::QV_ND_Packet discoverPacket(uint8_t opCode,
                                                      const quorvind::RequestToken& token) const;
  quorvind::ResultCode execute(const quorvind::QV_ND_Packet& request);

  Identity identity_;
  quorvind::DeviceConfig factoryConfig_;
  quorvind::DeviceConfig config_;
};

/// One of a series of datagrams that are not packets, each malformed in another way, or whose payload cannot
/// be read.
quorvind::Bytes MalformedDatagram(unsigned number);

}  // namespace qvsim
