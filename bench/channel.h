#pragma once

#include <cstdint>
#include <span>

#include "descriptor.h"
#include "line.h"
#include "quorvio/quorvio.h"

namespace qvbench {

/// A handle of the library that closes itself.
class Channel {
 public:
  Channel(const Address& address, void* userData, QV_IO_ReceiveCallback onReceive,
          QV_IO_ErrorCallback onError = nullptr) {
    const auto locator = address.locator();
    const auto result =
        QV_IO_Open(&handle_, locator.c_str(), address.options(), userData, onReceive, onError);
    Require(result == QV_IO_OK, "QV_IO_Open");
  }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;
  ~Channel() { close(); }

  [[nodiscard]] uint32_t send(std::span<const uint8_t> bytes) const {
    return QV_IO_Send(handle_, bytes.data(), bytes.size());
  }

  void close(bool wait = true) {
    if (open_) Require(QV_IO_Close(handle_, wait ? 1 : 0) == QV_IO_OK, "QV_IO_Close");
    open_ = false;
  }

 private:
  uint32_t handle_ = 0;
  bool open_ = true;
};

}  // namespace qvbench
