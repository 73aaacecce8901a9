#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "io/descriptor_channel.h"

namespace qvio {

/// What a network locator says. One of host and serial number is set.
struct NetworkTarget {
  std::string host;
  std::string serialNumber;
  uint16_t port = 0;  ///< 0: the locator gives none
};

/// Reads network:HOST[:PORT] or network:sn:SERIAL[:PORT]. A port is read from its leading digits. Throws
/// Failure: QV_IO_ERROR_INVALID_LOCATOR for other forms, QV_IO_ERROR_INVALID_ARGUMENT for a port that is no
/// number or above 65535.
NetworkTarget ReadNetworkTarget(const Locator& locator);

/// A TCP link to a controller.
class IoNetwork final : public DescriptorChannel {
 public:
  explicit IoNetwork(ChannelArguments arguments);

  /// A TCP link has no properties.
  [[nodiscard]] std::string property(std::string_view key) override;

 private:
  [[nodiscard]] cppu::UniqueFd openDescriptor() const override;
};

}  // namespace qvio
