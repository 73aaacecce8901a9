#pragma once

#include <sys/stat.h>

#include <array>
#include <string>
#include <vector>

#include "doctor/machine.h"

namespace qvio_tool {

enum class State { Ok, Note, Fault, Unknown };

/// What a check has to say about one thing.
struct Finding {
  std::string subject;
  State state = State::Ok;
  std::string text;
  std::string fix{};    ///< the command that repairs it; empty: none, or none is needed
  std::string check{};  ///< the name of the check; Diagnose sets it
};
using Findings = std::vector<Finding>;

/// Each depends on the machine alone and changes nothing.
Findings CheckLibrary(const Machine& machine);
Findings CheckFtdiLibraries(const Machine& machine);
Findings CheckUsbChips(const Machine& machine);
Findings CheckSerialPorts(const Machine& machine);
Findings CheckInterfaces(const Machine& machine);
Findings CheckUdpPorts(const Machine& machine);
Findings CheckMulticast(const Machine& machine);
Findings CheckFirewall(const Machine& machine);
Findings CheckRoutes(const Machine& machine);
Findings CheckReceiveBuffer(const Machine& machine);

/// The findings of all checks, in their order.
Findings Diagnose(const Machine& machine);

/// The finding that the user may not use a file. `fix` is for a file that its group may not use either.
Finding Forbidden(const std::string& subject, const std::string& path, const struct stat& file,
                  const std::string& fix);

/// The finding that a process has something open.
Finding Held(const std::string& subject, const Process& holder);

/// The command that ends a process; empty for the first one, which is the system itself.
std::string EndOf(const Process& process);

/// A text as one word of a shell command. Serial numbers come from the network.
std::string ShellWord(const std::string& text);

}  // namespace qvio_tool
