#pragma once

#include "nd/listeners.h"
#include "nd/packet.h"
#include "nd/pending_requests.h"

namespace quorvind {

/// Outcome of a configuration query.
struct GetDeviceConfigResult {
  ResultCode Code = ResultCode::Success;
  DeviceConfig Config;  ///< only with Success
};

/// Routes the answers of devices to the request with the same token, or to the listeners. Shared by a host
/// and its receive thread, which may outlive it for a moment. Any thread.
class Answers {
 public:
  using ConfigurationQueries = PendingRequests<GetDeviceConfigResult>;
  using ResultRequests = PendingRequests<ResultCode>;

  Listeners listeners;

  /// The tables of pending requests.
  ConfigurationQueries configurationQueries;
  ResultRequests resets;
  ResultRequests sets;

  /// Routes a received packet.
  void dispatch(const QV_ND_Packet& packet, const IP4& sender);

  /// Drops all pending requests: their futures report a broken promise.
  void dropAll();

  /// The same with RequestCancelledException.
  void cancelAll() noexcept;

 private:
  void notify(const QV_ND_Packet& packet, const IP4& sender);
  void completeWithResult(const QV_ND_Packet& packet);
  void completeWithConfiguration(const QV_ND_Packet& packet);
};

}  // namespace quorvind
