#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <random>
#include <string>
#include <thread>

#include "network_side.h"
#include "report.h"
#include "sim/peer.h"

namespace qvsoak {

using Clock = std::chrono::steady_clock;

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
void ConverseOverUsb(Place& place);
void ConverseOverTerminal(Place& place);
void ConverseOverTcp(Place& place);
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
