#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "io/ftdi/d2xx.h"
#include "sim/event_loop.h"
#include "sim/ftdi/chip_text.h"
#include "sim/ftdi/port.h"
#include "sim/responder.h"
#include "util/guarded.h"

namespace qvsim {

/// One chip, whether it is plugged in or not. All but its user area is guarded by the driver's lock.
struct Chip {
  explicit Chip(ChipDescription about);

  const ChipDescription description;
  const MakeResponder makeDevice;
  cppu::Guarded<std::string> userArea;
  bool isPlugged = true;
  bool isHeld;
  bool isStalled = false;
  std::shared_ptr<Port> port;           ///< the latest one; null: never open
  qvio::d2xx::Handle handle = nullptr;  ///< null: not open
};

/// The chips that there are and who has them open. Any thread. The functions return a status; those that
/// look at the chips throw when no chips can be read.
class Driver {
 public:
  using Handle = qvio::d2xx::Handle;
  using Node = qvio::d2xx::DeviceNode;

  /// Takes the snapshot that nodes() and open(index) refer to.
  uint32_t takeSnapshot(uint32_t& count);
  uint32_t nodes(Node* nodes, uint32_t& count) const;
  uint32_t chipCount();

  uint32_t open(int index, Handle& handle);
  uint32_t open(const std::function<bool(const ChipDescription&)>& isWanted, Handle& handle);
  uint32_t close(Handle handle);

  struct Opened {
    std::shared_ptr<Chip> chip;  ///< null: no such handle
    std::shared_ptr<Port> port;
  };
  [[nodiscard]] Opened find(Handle handle) const;

  // For the first chip with the serial number; false: no chip has it.
  bool setPlugged(std::string_view serialNumber, bool plugged);
  bool setHeld(std::string_view serialNumber, bool held);
  bool setStalled(std::string_view serialNumber, bool stalled);
  bool inject(std::string_view serialNumber, std::string_view bytes);  ///< false also when it is not open
  std::string settings(std::string_view serialNumber);                 ///< empty: it was never open

  [[nodiscard]] std::size_t openHandles() const;

  /// Unplugs the chips that there are and plugs these in.
  void setChips(const std::vector<ChipDescription>& descriptions);

  /// Back to the start: no handle is valid, and the chips are read anew when somebody asks.
  void reset();

 private:
  using Chips = std::vector<std::shared_ptr<Chip>>;
  using Ports = std::vector<std::shared_ptr<Port>>;

  // Caller holds the lock.
  void load();
  void fill(const std::vector<ChipDescription>& descriptions);
  uint32_t openChip(const std::shared_ptr<Chip>& chip, Handle& handle);
  EventLoop& loop();
  Ports unplugAll();
  std::shared_ptr<Chip> named(std::string_view serialNumber);
  std::shared_ptr<Chip> first(const std::function<bool(const Chip&)>& isWanted);

  mutable std::mutex mutex_;  ///< guards what follows; taken before the lock of a port
  bool isLoaded_ = false;
  Chips chips_;
  Chips listed_;
  std::vector<Node> snapshot_;
  std::map<Handle, Opened> open_;
  uintptr_t lastHandle_ = 0x1000;  ///< none is given out twice
  std::optional<EventLoop> loop_;
};

}  // namespace qvsim
