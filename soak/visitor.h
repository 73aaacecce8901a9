#pragma once

#include <array>
#include <memory>
#include <string>

#include "ledger.h"
#include "peer.h"
#include "workers.h"

namespace qvsoak {

/// Opens and closes handles all the time, of peers that nothing happens to: after a close with wait the
/// device must be free again at once.
class Visitor {
 public:
  Visitor(std::size_t number, Workshop& workshop, Ledger& ledger);

  static std::string chipName(std::size_t number) { return "VISIT-" + std::to_string(number); }

  /// The body of its thread.
  void run(Worker& worker);

 private:
  void visit(Worker& worker, Kind kind);
  void visitBySerialNumber(Worker& worker);
  static void close(Random& random, uint32_t handle, bool wait);

  Ledger& ledger_;
  std::array<std::unique_ptr<Peer>, kKinds.size()> peers_;
  bool chipIsFree_ = true;  ///< it was closed with wait
};

}  // namespace qvsoak
