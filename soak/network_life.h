#pragma once

#include <atomic>
#include <memory>

#include "ledger.h"
#include "quorvio/quorvio.h"
#include "sim/controller_group.h"
#include "workers.h"

namespace qvsoak {

/// What goes on around discovery: controllers that come, change and go, global options and the event callback
/// that are switched, an interface that goes down and up.
class NetworkLife {
 public:
  /// @param hasInterface  there is the interface qvsoak with the address 10.77.9.1, in a network of our own
  NetworkLife(Ledger& ledger, bool hasInterface);
  NetworkLife(const NetworkLife&) = delete;
  NetworkLife& operator=(const NetworkLife&) = delete;
  ~NetworkLife();

  /// The bodies of three threads.
  void changeControllers(Worker& worker);
  void switchSettings(Worker& worker);
  void switchInterface(Worker& worker);

  /// After all threads: nothing is watched, and all controllers are there again.
  void settle();

 private:
  static void onEvent(void* self, uint32_t type, const QV_IO_Event* event);

  Ledger& ledger_;
  const bool hasInterface_;
  qvsim::EventLoop loop_;  ///< of its own: answers must not wait for the traffic of channels
  qvsim::ControllerGroup onLoopback_;
  std::unique_ptr<qvsim::ControllerGroup> onInterface_;
  std::atomic<bool> expectsEvents_ = false;
};

}  // namespace qvsoak
