#pragma once

#include <string>

namespace qvbench {

inline constexpr const char* kRoundTripTcp = "64-byte round trip, TCP";
inline constexpr const char* kRoundTripTerminal = "64-byte round trip, terminal";
inline constexpr const char* kQuery = "64-byte query and answer line, TCP";
inline constexpr const char* kReceiving = "receive 512 MiB, TCP";
inline constexpr const char* kSending = "send 512 MiB in 64-KiB pieces, TCP";
inline constexpr const char* kEchoing = "64 MiB in one send and back, TCP";

/// A counter of round trips: context switches of the whole process for each.
inline constexpr const char* kSwitches = "switches";

/// The statistics that are compared.
inline constexpr const char* kMedian = "median";
inline constexpr const char* kQuarter = "quarter";

/// The name of a case as one contestant runs it.
inline std::string RunName(const char* name, const char* contestant) {
  return std::string(name) + " | " + contestant;
}

/// Registers every case for every contestant.
void RegisterCases();

}  // namespace qvbench
