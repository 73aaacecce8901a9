#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "nd/discover_info.h"
#include "nd/host.h"
#include "nd/known_devices.h"
#include "util/flags.h"
#include "util/guarded.h"

namespace quorvind {

/// The devices that one host has heard of, with three callbacks for what happens to them. Any thread; must
/// not be destroyed with a lock held that a callback takes.
///
/// The callbacks run on the host's receive thread for answers and on the searching thread for devices that
/// did not answer, without a lock held. An empty callback that would be called throws std::bad_function_call
/// there; what a callback throws passes on.
class DeviceFilter {
 public:
  enum class Change : unsigned { AvailabilityChanged = 1 };

  using DeviceCallback = std::function<void(const DiscoverInfo&)>;
  using ChangeCallback = std::function<void(const DiscoverInfo&, cppu::Flags<Change>)>;

  /// @param deviceType         kAnyDeviceType accepts every type
  /// @param protocolId         0 accepts every id
  /// @param tracksAvailability whether a device that is not available counts as not there
  DeviceFilter(std::shared_ptr<Host> host, DeviceCallback added, ChangeCallback changed,
               DeviceCallback removed, unsigned int deviceType, unsigned char protocolId,
               bool tracksAvailability);
  DeviceFilter(const DeviceFilter&) = delete;
  DeviceFilter& operator=(const DeviceFilter&) = delete;
  ~DeviceFilter();

  /// Takes one answer. Always true: the filter stays registered at its host.
  bool onDiscoverInfo(const DiscoverInfo& info);

  /// The devices in the order of their first appearance.
  [[nodiscard]] std::vector<DiscoverInfo> devices() const;

  /// Asks once, waits for the whole time, and removes every device that has not been heard since the request;
  /// with a serial number too, although only that device was asked.
  /// @param serialNumber  empty: every device
  /// Throws what Host::discover does.
  void search(std::chrono::milliseconds timeout, const std::string& serialNumber);

 private:
  /// What an answer did to the list.
  struct Effect {
    bool added = false;
    bool changed = false;
    bool removed = false;
  };

  [[nodiscard]] bool accepts(const DiscoverInfo& info) const;
  Effect apply(const DiscoverInfo& info, KnownDevices& known) const;
  static void undo(const Effect& effect, const DiscoverInfo& info, KnownDevices& known);
  static bool update(DiscoverInfo& known, const DiscoverInfo& info);
  static bool removeUnavailable(KnownDevices::Position position, const DiscoverInfo& info,
                                KnownDevices& known);

  const DeviceCallback added_;
  const ChangeCallback changed_;
  const DeviceCallback removed_;
  const uint32_t deviceType_;
  const uint8_t protocolId_;
  const bool tracksAvailability_;
  cppu::Guarded<KnownDevices> known_;
  std::shared_ptr<Host> host_;
  std::size_t registration_;
};

}  // namespace quorvind
