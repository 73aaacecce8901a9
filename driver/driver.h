#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "driver/chip.h"
#include "driver/port.h"
#include "io/ftdi/d2xx.h"

namespace qvusb {

/// The list that was made last, and the channels that are open. Any thread. The functions return a status or
/// throw std::system_error.
class Driver {
 public:
  using Handle = qvio::d2xx::Handle;
  using Node = qvio::d2xx::DeviceNode;

  /// The one of the process. Never destroyed.
  static Driver& the();

  /// Makes the list that nodes() and open(index) refer to.
  uint32_t makeList(uint32_t& count);
  uint32_t nodes(Node* nodes, uint32_t& count) const;

  uint32_t open(int index, Handle& handle);
  uint32_t open(const std::function<bool(const Channel&)>& isWanted, Handle& handle);
  uint32_t close(Handle handle);

  /// Null: no such handle.
  [[nodiscard]] std::shared_ptr<Port> find(Handle handle) const;

 private:
  Handle nextHandle();

  mutable std::mutex mutex_;  ///< guards what follows; a leaf
  std::vector<Channel> listed_;
  std::map<Handle, std::shared_ptr<Port>> open_;
  uintptr_t lastHandle_ = 0x1000;  ///< none is given out twice
};

}  // namespace qvusb
