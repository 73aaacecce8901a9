#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string_view>

#include "nd/answers.h"
#include "nd/connection.h"
#include "util/thread.h"

namespace quorvind {

/// The work of a host's receive thread: takes datagrams from the transport and hands what they say to the
/// answers, until it is stopped or the transport is closed by stop().
class Reception final : public cppu::Worker {
 public:
  Reception(std::shared_ptr<Connection> connection, std::shared_ptr<Answers> answers);

  /// Nothing that happens here ends the process: failures are logged, and the thread continues.
  void run() override;
  void stop() noexcept override;
  void abandon() noexcept override { connection_->Abandon(); }

 private:
  void receiveOnce();
  [[nodiscard]] bool isStopped();
  void rest(std::string_view failure);

  const std::shared_ptr<Connection> connection_;
  const std::shared_ptr<Answers> answers_;
  std::mutex mutex_;  ///< guards stopped_; a leaf
  std::condition_variable wakeUp_;
  bool stopped_ = false;
};

}  // namespace quorvind
