#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "decisions.h"
#include "handle_model.h"
#include "links.h"
#include "open_channel.h"
#include "random_texts.h"

namespace qvfuzz {

/// The calls of one input on handles, each compared with the model. Calls come one at a time, on whatever
/// thread.
class CallSequence {
 public:
  CallSequence(Decisions decisions, Links& links);
  CallSequence(const CallSequence&) = delete;
  CallSequence& operator=(const CallSequence&) = delete;

  /// Closes everything and sees that nothing is left.
  ~CallSequence();

  void run();

 private:
  void step();
  void callFromCallback();

  void openKnown();
  void openMany();
  void openRandom();
  void close();
  void send();
  void getProperty();
  void loseTcpPeers();

  /// Opens, and compares the handle with the model. Null: nothing is open.
  OpenChannel* open(Link* link, const std::string& locator, const std::string& options, uint32_t& result);
  void open(Link& link);
  void closeOpen(uint32_t handle, OpenChannel& channel, bool wait);
  uint32_t anyHandle();

  Decisions decisions_;
  Links& links_;
  RandomTexts texts_;
  HandleModel model_;
  std::vector<std::unique_ptr<OpenChannel>> channels_;
  OpenChannel* callback_ = nullptr;  ///< in whose callback the calls are made
};

}  // namespace qvfuzz
