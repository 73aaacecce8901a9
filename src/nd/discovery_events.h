#pragma once

#include <functional>

#include "options/record_list.h"

namespace quorvind {

enum class DiscoveryEvent {
  DeviceFound,  ///< or available again
  DeviceLost    ///< or no longer available
};

/// What discovery reports to the layer above. Called on a host's receive thread or a searching thread, with
/// no discovery lock held but the one that keeps the notices of an interface in order; exceptions pass on.
class DiscoveryEvents {
 public:
  /// @param isStillWanted  to be asked at the last moment, when the settings cannot change until the event is
  ///                       delivered: an event of an interface that was switched off is dropped
  virtual void raise(DiscoveryEvent event, qvio::PropertyRecord device,
                     const std::function<bool()>& isStillWanted) = 0;

 protected:
  ~DiscoveryEvents() = default;  // never deleted through this interface
};

}  // namespace quorvind
