#pragma once

#include <functional>

#include "options/record_list.h"

namespace quorvind {

enum class DiscoveryEvent {
  DeviceFound,  ///< or available again
  DeviceLost    ///< or no longer available
};

/// What discovery tells the layer above. Called on a host's receive thread or a searching thread, with no
/// discovery lock held; what it throws passes on.
class DiscoveryEvents {
 public:
  /// @param isStillWanted  to be asked at the last moment, when the settings cannot change until the event is
  ///                       delivered: an event of an interface that was switched off is dropped
  virtual void raise(DiscoveryEvent event, qvio::PropertyRecord device,
                     const std::function<bool()>& isStillWanted) = 0;

  /// Whether the calling thread is delivering an event. It must then not wait for a discovery thread, which
  /// may be waiting for this delivery to end.
  [[nodiscard]] virtual bool isDelivering() const = 0;

 protected:
  ~DiscoveryEvents() = default;  // never deleted through this interface
};

}  // namespace quorvind
