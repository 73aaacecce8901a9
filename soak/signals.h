#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include "ledger.h"
#include "workers.h"

namespace qvsoak {

/// From now on counts every signal that can be counted without keeping the user from ending the program.
/// System calls are interrupted by them.
void CountSignals();

/// The signals that came but for those named, as "3 x SIGPIPE"; empty when there were none. A signal that
/// came to a thread of the library is named in any case.
std::string UnexpectedSignals(std::initializer_list<int> expected);

/// The body of a thread that sends signals to the others and to the process.
void SendSignals(Worker& worker, Workers& workers, Ledger& ledger);

}  // namespace qvsoak
