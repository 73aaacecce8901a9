#pragma once

#include "io/io_device.h"

namespace qvio {

/// A USB link through FTDI's driver. The driver's libraries are not bound yet, so that no link can be opened.
class IoFtdi final : public IoDevice {
 public:
  using IoDevice::IoDevice;

  uint32_t open(std::shared_ptr<IoDevice> self) override;
  void close(bool wait) override;
  uint32_t send(const void* data, std::size_t length) override;
  uint32_t getProperty(const char* key, char* buffer, std::size_t* size) override;
};

}  // namespace qvio
