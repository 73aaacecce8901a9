#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "dialogue.h"
#include "pace.h"
#include "peer.h"
#include "workers.h"

namespace qvsoak {

/// One channel of the soak: opens its peer, talks with it, closes, again and again. Its own thread does all
/// that; the thread that makes faults comes in between.
class Conversation {
 public:
  /// @param number  tells the channels apart, and the chips: each has one of its own
  Conversation(Kind kind, std::size_t number, Workshop& workshop, Ledger& ledger, const Pace& pace);

  static std::string chipName(std::size_t number) { return "SOAK-" + std::to_string(number); }

  /// The body of its thread.
  void run(Worker& worker);

  /// A fault of the link, if there is a link now that has none yet. Any other thread.
  void makeFault(Random& random);
  void stall(bool stalled);

  /// After all threads: the peer is there again.
  void settle();

 private:
  [[nodiscard]] bool open(Worker& worker);
  void judgeRefusal(Worker& worker, uint32_t result);
  void awaitPeer(Worker& worker);
  void converse(Worker& worker);
  void close(Worker& worker);
  void renewPeer();
  void retire(std::unique_ptr<Dialogue> dialogue);

  const Kind kind_;
  const std::string name_;
  Ledger& ledger_;
  const Pace& pace_;
  const bool livesLong_;
  uint64_t seed_;
  Clock::time_point triesSince_;
  int refusals_ = 0;

  /// Closed without wait: a last callback may still come.
  struct Retired {
    Clock::time_point since;
    std::unique_ptr<Dialogue> dialogue;
  };
  std::deque<Retired> retired_;

  std::mutex mutex_;  ///< guards what follows; not held while the library is waited for
  std::unique_ptr<Peer> peer_;
  bool isAway_ = false;
  Dialogue* faultTarget_ = nullptr;     ///< the open dialogue
  std::unique_ptr<Dialogue> dialogue_;  ///< its own thread only
};

}  // namespace qvsoak
