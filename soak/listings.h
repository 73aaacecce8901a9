#pragma once

#include <cstddef>

#include "ledger.h"
#include "workers.h"

namespace qvsoak {

inline constexpr const char* kSteadyChip = "STEADY";  ///< never unplugged, never opened
inline constexpr const char* kSteadyController = "SOAK-NET-0";

/// The body of a thread that lists devices and interfaces: USB and network, afresh and from memory, as
/// records and as locators.
void ListAllTheTime(Worker& worker, Ledger& ledger, std::size_t number);

}  // namespace qvsoak
