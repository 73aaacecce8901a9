#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>

#include "links.h"
#include "quorvio/quorvio.h"

namespace qvfuzz {

/// One handle as its user sees it: what its callbacks bring, compared with what its device echoes. Has to
/// live until its receive thread has ended.
class OpenChannel {
 public:
  /// @param link  null: nothing is known of the device
  OpenChannel(Link* link, bool hasReceiveCallback)
      : link_(link), echoes_(link != nullptr && link->echoes && link->isQuiet && hasReceiveCallback) {}

  [[nodiscard]] Link* link() const { return link_; }

  /// Whether a send must succeed.
  [[nodiscard]] bool isIntact() const { return link_ != nullptr && !isBroken_; }

  /// Whether every byte must come back.
  [[nodiscard]] bool echoes() const;

  void expectNoEcho();
  void peerIsGone();  ///< from now on anything may come of a send

  /// To be called before the bytes are sent.
  void expect(std::string_view bytes);

  [[nodiscard]] bool isWaitingForEcho() const;
  void awaitEcho();

  /// Runs the action within the next receive callback and returns when it is done.
  /// @param trigger  sends something that is echoed
  void runInCallback(std::function<void()> action, const std::function<void()>& trigger);

  /// From now on no callback may run.
  void isClosed() { isClosed_ = true; }

  static void onReceive(void* self, const uint8_t* data, std::size_t length);
  static void onError(void* self, uint32_t resultCode);

 private:
  void enterCallback();
  void leaveCallback() { isInCallback_ = false; }
  void receive(std::string_view bytes);

  Link* const link_;
  mutable std::mutex mutex_;  ///< guards what follows
  std::condition_variable changed_;
  std::string awaited_;  ///< sent and not come back yet
  bool echoes_;
  std::function<void()> action_;
  bool isDone_ = false;

  std::atomic<bool> isBroken_ = false;
  std::atomic<bool> isClosed_ = false;
  std::atomic<bool> isInCallback_ = false;
};

}  // namespace qvfuzz
