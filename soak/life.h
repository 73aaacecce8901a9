#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "report.h"
#include "sim/controller.h"
#include "sim/controller_group.h"
#include "sim/peer.h"

namespace qvsoak {

using Clock = std::chrono::steady_clock;

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

/// What all lives share.
struct Scene {
  explicit Scene(bool hasInterface) : network(report, hasInterface) {}

  Report report;
  qvsim::Workshop workshop;
  NetworkSide network;
};

/// What a life gets: one of the program's threads.
struct Place {
  Scene& scene;
  std::size_t number;  ///< of the thread
  Clock::time_point end;
  std::minstd_rand random;

  /// A number from least to most.
  template <class Number>
  Number draw(Number least, Number most) {
    return std::uniform_int_distribution<Number>(least, most)(random);
  }

  void pause(std::chrono::milliseconds least, std::chrono::milliseconds most) {
    std::this_thread::sleep_until(
        std::min(Clock::now() + std::chrono::milliseconds(draw(least.count(), most.count())), end));
  }
};

/// A row of the soak: so many threads live it again and again until the end. A life takes seconds; an
/// exception of it is a violation, but for Errc::noFreeHandle.
struct Life {
  const char* name;
  std::size_t threads;
  void (*live)(Place&);
};

/// The chip of a thread.
inline std::string ChipName(std::size_t number) { return "SOAK-" + std::to_string(number); }

// Lives of channels (channel_lives.cpp).
void Converse(Place& place, qvsim::Link link);
void Visit(Place& place);

// Lives around discovery (network_lives.cpp).
inline constexpr const char* kSteadyChip = "STEADY";  ///< never unplugged, never opened
void List(Place& place);
void OpenBySerialNumber(Place& place);
void ChangeController(Place& place);
void SwitchSettings(Place& place);
void SwitchInterface(Place& place);

// process.cpp
void SendSignals(Place& place);

}  // namespace qvsoak
