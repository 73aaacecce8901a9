#pragma once

#include <cstddef>
#include <cstring>
#include <exception>
#include <future>
#include <unordered_map>
#include <utility>

#include "nd/packet.h"

namespace quorvind {

/// The requests that wait for an answer, by token. Not locked: the owner does that.
template <class Answer>
class PendingRequests {
 public:
  std::future<Answer> add(const RequestToken& token) { return promises_[token].get_future(); }

  void drop(const RequestToken& token) { promises_.erase(token); }

  /// Moves the request out, if there is one with the token, into an empty `request`.
  bool take(const RequestToken& token, std::promise<Answer>& request) {
    const auto found = promises_.find(token);
    if (found == promises_.end()) return false;
    request = std::move(found->second);
    promises_.erase(found);
    return true;
  }

  /// Destroyed unfulfilled: their futures report a broken promise.
  void dropAll() { promises_.clear(); }

  void failAll(const std::exception_ptr& failure) {
    for (auto& [token, promise] : promises_) promise.set_exception(failure);
    promises_.clear();
  }

 private:
  struct TokenHash {
    std::size_t operator()(const RequestToken& token) const noexcept {
      std::size_t hash = 0;  // random bytes are as good as any hash
      std::memcpy(&hash, token.data(), sizeof hash);
      return hash;
    }
  };

  std::unordered_map<RequestToken, std::promise<Answer>, TokenHash> promises_;
};

}  // namespace quorvind
