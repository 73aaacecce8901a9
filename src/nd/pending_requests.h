#pragma once

#include <cstddef>
#include <cstring>
#include <exception>
#include <future>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "nd/packet.h"

namespace quorvind {

/// The requests of one kind that wait for an answer, by token. Any thread.
template <class Answer>
class PendingRequests {
 public:
  std::future<Answer> add(const RequestToken& token) {
    const std::lock_guard lock(mutex_);
    return promises_[token].get_future();
  }

  void drop(const RequestToken& token) {
    const std::lock_guard lock(mutex_);
    promises_.erase(token);
  }

  /// Moves the request out, if there is one with the token, into an empty `request`.
  bool take(const RequestToken& token, std::promise<Answer>& request) {
    const std::lock_guard lock(mutex_);
    const auto found = promises_.find(token);
    if (found == promises_.end()) return false;
    request = std::move(found->second);
    promises_.erase(found);
    return true;
  }

  /// Destroyed unfulfilled: their futures report a broken promise.
  void dropAll() noexcept { takeAll(); }

  void failAll(const std::exception_ptr& failure) noexcept {
    for (auto& [token, promise] : takeAll()) promise.set_exception(failure);
  }

 private:
  struct TokenHash {
    std::size_t operator()(const RequestToken& token) const noexcept {
      std::size_t hash = 0;  // random bytes are as good as any hash
      std::memcpy(&hash, token.data(), sizeof hash);
      return hash;
    }
  };
  using Promises = std::unordered_map<RequestToken, std::promise<Answer>, TokenHash>;

  Promises takeAll() noexcept {
    Promises all;
    const std::lock_guard lock(mutex_);
    all.swap(promises_);
    return all;
  }

  std::mutex mutex_;  ///< guards promises_; a leaf, not held while a promise is fulfilled
  Promises promises_;
};

}  // namespace quorvind
