#pragma once

#include <array>
#include <atomic>
#include <optional>

#include "quorvio/quorvio.h"
#include "report.h"
#include "sim/controller.h"
#include "sim/controller_group.h"

namespace qvsoak {

/// The controllers that discovery finds, and what the event callback needs.
struct NetworkSide {
  static constexpr int kControllers = 20;
  static constexpr const char* kAddress = "10.77.9.1";

  /// @param hasInterface  the interface qvsoak with kAddress exists, in a network of our own
  NetworkSide(Report& report, bool hasInterface);

  /// After all lives: nothing is watched, and all controllers are back.
  void settle();

  static std::string serialNumber(int number) { return "SOAK-NET-" + std::to_string(number); }

  Report& report;
  qvsim::EventLoop loop;  ///< not the one of the channels: answers must not wait for their traffic
  qvsim::ControllerGroup onLoopback;
  std::optional<qvsim::ControllerGroup> onInterface;
  std::atomic<bool> expectsEvents = false;
};

}  // namespace qvsoak
