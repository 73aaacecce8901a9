#pragma once

#include <utility>

namespace cppu {

/// Runs an action when the scope is left in any way, forced unwinding included.
template <class Action>
class ScopeExit {
 public:
  explicit ScopeExit(Action action) : action_(std::move(action)) {}
  ScopeExit(const ScopeExit&) = delete;
  ScopeExit& operator=(const ScopeExit&) = delete;
  ~ScopeExit() { action_(); }

 private:
  Action action_;
};

}  // namespace cppu
