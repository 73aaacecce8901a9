#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "nd/discover_info.h"
#include "nd/host.h"
#include "util/cancellable_wait.h"
#include "util/flags.h"

namespace quorvind {

/// The devices that one host has heard of, with three callbacks for what happens to them. Any thread.
///
/// The callbacks run on the host's receive thread for answers and on the searching thread for devices that
/// did not answer, one at a time and in the order in which the list has changed: the last callback for a
/// device always agrees with the list. For that a lock is held around changing the list and calling back; a
/// callback may call devices() but nothing else of the filter, and must not wait for a thread that is in
/// onDiscoverInfo() or search(). An empty callback that would be called throws std::bad_function_call there;
/// exceptions of a callback pass on.
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

  /// Never waits: a callback that is running goes on, so that callbacks must own what they use.
  ~DeviceFilter();

  /// Takes one answer. Always true: the filter stays registered at its host.
  bool onDiscoverInfo(const DiscoverInfo& info);

  /// The devices in the order of their first appearance. A device that appears when 16,384 are known is
  /// ignored.
  [[nodiscard]] std::vector<DiscoverInfo> devices() const;

  /// Asks once, waits for the whole time, and removes the devices that have not been heard since. Devices
  /// heard since the oldest search that is still running began are spared, since they may have answered that
  /// one.
  /// @param serialNumber  only this device is asked, and only records of it are removed; empty: every device
  /// Throws what Host::discover does.
  void search(std::chrono::milliseconds timeout, const std::string& serialNumber);

  /// The same with a wait that may be cancelled; then nothing is removed.
  void search(std::chrono::milliseconds timeout, const std::string& serialNumber,
              cppu::CancellableWait& wait);

 private:
  class Core;

  const std::shared_ptr<Core> core_;  ///< shared with the listener that is registered at the host
  const std::shared_ptr<Host> host_;
  const std::size_t registration_;
};

}  // namespace quorvind
