#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/private_network.h"
#include "support/program.h"

namespace qvtest {

/// What the calls of one use answered, in their order. Allocates nothing while it is filled.
class Answers {
 public:
  /// Returns whether the call succeeded.
  /// @param stated  the other results that a fault may give it
  bool add(const char* call, uint32_t result, std::initializer_list<uint32_t> stated = {});

  /// As "open 0, send 9"; a result that is not stated is followed by "!".
  [[nodiscard]] std::string text() const;
  [[nodiscard]] bool areStated() const;
  [[nodiscard]] bool reportFailure() const;  ///< of a system call, which memory counts as

  /// Whether each of them is that of a good use or reports a failure.
  [[nodiscard]] bool areThoseOf(const Answers& good) const;

 private:
  struct Answer {
    const char* call = "";
    uint32_t result = 0;
    bool isStated = true;
  };
  std::array<Answer, 16> answers_{};
  std::size_t count_ = 0;
};

/// How long a use waits for an answer.
using Patience = std::chrono::milliseconds;

/// One use of the library, from the first call to the last one that undoes it.
struct Use {
  const char* name;
  std::function<void(Patience, Answers&)> run;

  [[nodiscard]] Answers once(Patience patience) const {
    Answers answers;
    run(patience, answers);
    return answers;
  }

  /// The answers while nothing fails. Repeated, since on a busy machine a search may end before the answer.
  [[nodiscard]] Answers undisturbed() const;
};

/// The devices of the uses: simulated ones in processes of their own, so that no fault can hit them, and the
/// stand-in's first chip. They and the test need a network to themselves: what other devices send changes
/// what a search finds, and what it allocates.
class Devices {
 public:
  [[nodiscard]] bool areAlone() const { return network_.entered(); }

  /// A use for every kind of link, for the listings and for the watched interfaces.
  [[nodiscard]] const std::vector<Use>& uses() const { return uses_; }

 private:
  const PrivateNetwork network_;
  const Program serial_{{"serial", "--echo"}};
  const Program tcp_{{"network", "--port", "0"}};
  const std::string serialNumber_ = "FAULTS-" + std::to_string(::getpid());
  const Program controller_{{"network", "--iface", "127.0.0.1", "--serial", serialNumber_, "--spread", "1"}};
  const std::vector<Use> uses_ = makeUses();

  [[nodiscard]] std::vector<Use> makeUses() const;
};

}  // namespace qvtest
